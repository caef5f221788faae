// SPDX-License-Identifier: Apache-2.0
// Dropping a file's claim on a description, and the key with its last claim.
#include "tests/keyring/FileTest.h"

namespace Vestrel::Tests {

namespace {

class Unmap : public FileTest {
protected:
    void map(const std::string& name, const std::string& description) {
        keyColl()->descriptionToFileIs(description)->filePathIs(file(name));
        keyColl()->fileToDescriptionIs(file(name), description);
    }

    void record(key_serial_t serial, const std::string& description) {
        keyColl()->keyIs({serial, description, "asymmetric"});
    }

    void unmap(const std::string& name, const std::string& description) {
        sm->unmapFileToDescription(".ima", file(name), description);
    }

    std::string firstLine(const std::string& name, const std::string& description) {
        return "5 unmapFileToDescription: .ima, " + file(name) + " <-> " + description;
    }

    const std::string lastFileLine_ =
        "5 unmapFileToDescription: Removing the key matching the old file content";
};

TEST_F(Unmap, UnlinksTheKeyOfADescriptionThatNoFileCarriesAnyMore) {
    const key_serial_t key = load("a", "one");
    unmap("a", "one");
    EXPECT_EQ(traces(), unmapped(file("a"), "one", key));
    EXPECT_EQ(keys.keysOf(".ima"), Serials{});
    EXPECT_FALSE(keyColl()->descriptionToFileHas("one"));
    EXPECT_FALSE(keyColl()->fileToDescriptionHas(file("a")));
}

TEST_F(Unmap, DropsTheEmptySetBeforeItLooksForTheKey) {
    load("a", "one");
    bool has = true;
    onTrace = [&](const std::string& line) {
        if (line == lastFileLine_) {
            has = keyColl()->descriptionToFileHas("one");
        }
    };
    unmap("a", "one");
    EXPECT_FALSE(has);
}

TEST_F(Unmap, KeepsTheKeyLinkedWhileAnotherFileCarriesTheDescription) {
    load("a", "one");
    const key_serial_t key = load("b", "one");
    unmap("b", "one");
    EXPECT_EQ(traces(), TraceLines{firstLine("b", "one")});
    EXPECT_EQ(keys.calls(), Texts{});
    EXPECT_EQ(keys.keysOf(".ima"), Serials{key});
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
    EXPECT_FALSE(keyColl()->fileToDescriptionHas(file("b")));
}

TEST_F(Unmap, KeepsAnEntryThatNamesAnotherDescriptionAlready) {
    load("a", "one");
    load("a", "two");
    unmap("a", "one");
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "two");
    EXPECT_EQ(filesOf("two"), Texts{file("a")});
    EXPECT_FALSE(keyColl()->descriptionToFileHas("one"));
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"two"});
}

TEST_F(Unmap, TakesAFileWithoutAnEntryOutOfTheSet) {
    map("a", "one");
    keyColl()->fileToDescriptionDel(file("a"));
    unmap("a", "one");
    EXPECT_FALSE(keyColl()->descriptionToFileHas("one"));
    EXPECT_EQ(traces(), (TraceLines{firstLine("a", "one"), lastFileLine_}));
}

TEST_F(Unmap, LeavesASetAloneThatDoesNotHoldTheFile) {
    map("a", "one");
    unmap("b", "one");
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "one");
}

TEST_F(Unmap, UnlinksOnlyTheFirstOfTwoRecordsWithTheDescription) {
    const key_serial_t other = keys.addKey(".ima", "two");
    const key_serial_t first = keys.addKey(".ima", "one");
    const key_serial_t second = keys.addKey(".ima", "one", {"user", 0, 0, usualKey});
    record(other, "two");
    record(first, "one");
    record(second, "one");
    map("a", "one");
    unmap("a", "one");
    EXPECT_EQ(keys.keysOf(".ima"), (Serials{other, second}));
    EXPECT_EQ(traces(), unmapped(file("a"), "one", first));
}

TEST_F(Unmap, StopsAtTheFirstRecordEvenWhenItsKeyIsGone) {
    const key_serial_t second = keys.addKey(".ima", "one");
    record(987654, "one");
    record(second, "one");
    map("a", "one");
    unmap("a", "one");
    EXPECT_EQ(keys.calls(), Texts{"keyctl_describe 987654 0"});
    EXPECT_EQ(keys.keysOf(".ima"), Serials{second});
}

TEST_F(Unmap, UnlinksNothingWhenNoRecordMatches) {
    record(keys.addKey(".ima", "One"), "One");
    record(keys.addKey(".ima", "one more"), "one more");
    map("a", "one");
    unmap("a", "one");
    EXPECT_EQ(traces(), (TraceLines{firstLine("a", "one"), lastFileLine_}));
    EXPECT_EQ(keys.calls(), Texts{});
}

TEST_F(Unmap, KeepsTheMapsUpdatedWhenTheKernelRefusesToUnlink) {
    const key_serial_t key = load("a", "one");
    keys.failNext("keyctl_unlink", EACCES);
    unmap("a", "one");
    EXPECT_EQ(traces(), joined({unmapped(file("a"), "one", key),
                                {"1 unlinkKey: keyctl_unlink: Permission denied"}}));
    EXPECT_EQ(keys.keysOf(".ima"), Serials{key});
    EXPECT_EQ(mappedFiles(), 0U);
    EXPECT_FALSE(keyColl()->descriptionToFileHas("one"));
    EXPECT_EQ(recorded(), Serials{key});
}

TEST_F(Unmap, LeavesOtherKeyringsAlone) {
    const key_serial_t key = load("a", "one");
    const key_serial_t twin = keys.addKey(".secondary_trusted_keys", "one");
    keyColl(".secondary_trusted_keys")->keyIs({twin, "one", "asymmetric"});
    unmap("a", "one");
    EXPECT_EQ(keys.calls(), (Texts{"keyctl_describe " + text(key) + " 0",
                                   "keyctl_unlink " + text(key) + " " + text(ring())}));
    EXPECT_EQ(keys.keysOf(".secondary_trusted_keys"), Serials{twin});
}

class UnmapDeathTest : public Unmap {
protected:
    UnmapDeathTest() { tracesToStandardError(); }

    // Of a process that unmaps the file "a" from "one".
    static std::string brokenInvariant(const std::string& keyring) {
        return deathBehind("5 unmapFileToDescription: " + keyring + ", " + file("a") + " <-> one",
                           "unmapFileToDescription",
                           "keyColl && keyColl->descriptionToFileHas\\( description \\)");
    }
};

TEST_F(UnmapDeathTest, EndsTheProcessForADescriptionThatNoFileCarries) {
    EXPECT_DEATH(unmap("a", "one"), brokenInvariant(".ima"));
}

TEST_F(UnmapDeathTest, EndsTheProcessForAKeyringThatIsNotManaged) {
    map("a", "one");
    EXPECT_DEATH(sm->unmapFileToDescription(".foreign", file("a"), "one"),
                 brokenInvariant(".foreign"));
}

} // namespace

} // namespace Vestrel::Tests
