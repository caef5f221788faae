// SPDX-License-Identifier: Apache-2.0
// Reloading a certificate file whose content has changed.
#include "tests/keyring/FileTest.h"

#include <algorithm>

namespace Vestrel::Tests {

namespace {

class ModifyFile : public FileTest {
protected:
    // Rewrites the file and has it reloaded.
    void modify(const std::string& name, const std::string& content) {
        write(file(name), content);
        clear();
        sm->modifyFile(".ima", file(name));
    }

    void modifyRefused(const std::string& name) {
        keys.judgeWith([](KeyService::Bytes) { return EBADMSG; });
        modify(name, "garbage");
    }

    std::string firstLine() const { return "5 modifyFile: .ima, " + file("a"); }

    TraceLines describedAsNothing() const {
        return {"5 getKey: -1, .ima",
                "1 getKey: keyctl_describe_alloc: Required key not available"};
    }
};

TEST_F(ModifyFile, KeepsMappingAndKeyWhenTheDescriptionIsTheSame) {
    load("a", "one");
    modify("a", "one");
    const key_serial_t serial = newest();
    EXPECT_EQ(traces(),
              joined({{firstLine()}, loaded(file("a"), serial, "one"), described(serial, "one")}));
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "one");
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
    EXPECT_EQ(keys.keysOf(".ima"), Serials{serial});
}

TEST_F(ModifyFile, UnlinksTheOldKeyWhenTheDescriptionChanges) {
    const key_serial_t old = load("a", "one");
    modify("a", "two");
    const key_serial_t serial = newest();
    EXPECT_EQ(traces(), joined({{firstLine()},
                                loaded(file("a"), serial, "two"),
                                described(serial, "two"),
                                unmapped(file("a"), "one", old)}));
    EXPECT_EQ(keys.keysOf(".ima"), Serials{serial});
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "two");
    EXPECT_EQ(filesOf("two"), Texts{file("a")});
    EXPECT_FALSE(keyColl()->descriptionToFileHas("one"));
}

TEST_F(ModifyFile, CallsTheKernelInOrder) {
    const key_serial_t old = load("a", "one");
    modify("a", "two");
    const std::string serial = text(newest());
    EXPECT_EQ(keys.calls(),
              (Texts{"add_key asymmetric NULL 3 " + text(ring()), "keyctl_describe_alloc " + serial,
                     "keyctl_describe_alloc " + serial, "keyctl_describe " + text(old) + " 0",
                     "keyctl_unlink " + text(old) + " " + text(ring())}));
}

TEST_F(ModifyFile, MapsTheNewDescriptionBeforeItLeavesTheOld) {
    load("a", "one");
    Orvo::String current;
    Texts ofNew;
    Texts ofOld;
    onTrace = [&](const std::string& line) {
        if (line == "5 unmapFileToDescription: .ima, " + file("a") + " <-> one") {
            current = keyColl()->fileToDescription(file("a"));
            ofNew = filesOf("two");
            ofOld = filesOf("one");
        }
    };
    modify("a", "two");
    EXPECT_EQ(current, "two");
    EXPECT_EQ(ofNew, Texts{file("a")});
    EXPECT_EQ(ofOld, Texts{file("a")});
}

TEST_F(ModifyFile, KeepsTheOldKeyWhileAnotherFileCarriesItsDescription) {
    load("a", "one");
    const key_serial_t old = load("b", "one");
    modify("a", "two");
    EXPECT_EQ(keys.keysOf(".ima"), (Serials{old, newest()}));
    EXPECT_EQ(filesOf("one"), Texts{file("b")});
    EXPECT_EQ(filesOf("two"), Texts{file("a")});
    EXPECT_EQ(traces().back(), "5 unmapFileToDescription: .ima, " + file("a") + " <-> one");
}

TEST_F(ModifyFile, ComparesDescriptionsExactly) {
    load("a", "One");
    modify("a", "one");
    EXPECT_TRUE(traced("5 unmapFileToDescription: .ima, " + file("a") + " <-> One"));
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"one"});
}

TEST_F(ModifyFile, DropsTheOldMappingOfAFileThatFailsToLoad) {
    const key_serial_t old = load("a", "one");
    modifyRefused("a");
    EXPECT_EQ(traces(), joined({{firstLine(), "5 loadFile: .ima, " + file("a")},
                                describedAsNothing(),
                                unmapped(file("a"), "one", old)}));
    EXPECT_EQ(messages, Texts{failure(file("a"), "Bad message")});
    EXPECT_EQ(mappedFiles(), 0U);
    EXPECT_FALSE(keyColl()->descriptionToFileHas("one"));
    EXPECT_EQ(keys.keysOf(".ima"), Serials{});
}

TEST_F(ModifyFile, KeepsTheKeyOfAFailedFileWhileAnotherFileCarriesIt) {
    load("a", "one");
    const key_serial_t key = load("b", "one");
    modifyRefused("a");
    EXPECT_EQ(mappedFiles(), 1U);
    EXPECT_EQ(filesOf("one"), Texts{file("b")});
    EXPECT_EQ(keys.keysOf(".ima"), Serials{key});
}

TEST_F(ModifyFile, DescribesTheKeyAlsoWhenAnUnmappedFileFailsToLoad) {
    modifyRefused("a");
    EXPECT_EQ(traces(),
              joined({{firstLine(), "5 loadFile: .ima, " + file("a")}, describedAsNothing()}));
    EXPECT_EQ(keys.calls().back(), "keyctl_describe_alloc -1");
}

TEST_F(ModifyFile, TakesTheProcessesOwnKeyringForNoKeyAfterAFailedLoad) {
    keys.threadKeyring(); // which the serial -1 then names
    load("a", "one");
    modifyRefused("a");
    EXPECT_TRUE(traced("5 getKey: Key is a keyring, ignoring"));
    EXPECT_EQ(mappedFiles(), 0U);
    EXPECT_EQ(keys.keysOf(".ima"), Serials{});
}

TEST_F(ModifyFile, MapsAFileThatWasNotMapped) {
    modify("a", "one");
    const key_serial_t serial = newest();
    EXPECT_EQ(traces(),
              joined({{firstLine()}, loaded(file("a"), serial, "one"), described(serial, "one")}));
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "one");
}

TEST_F(ModifyFile, UnmapsAFileWhoseNewKeyCannotBeDescribedAgain) {
    const key_serial_t old = load("a", "one");
    keys.failNth("keyctl_describe_alloc", 2, EKEYREVOKED);
    modify("a", "two");
    EXPECT_TRUE(traced("1 getKey: keyctl_describe_alloc: Key has been revoked"));
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "two");
    EXPECT_FALSE(keyColl()->descriptionToFileHas("one"));
    EXPECT_EQ(std::ranges::count(keys.keysOf(".ima"), old), 0);
}

TEST_F(ModifyFile, LeavesAFileUnmappedThatOnlyTheSecondDescriptionKnows) {
    load("a", "one");
    keys.failNext("keyctl_describe_alloc", EKEYREVOKED);
    modify("a", "two");
    EXPECT_EQ(mappedFiles(), 0U);
    EXPECT_TRUE(keyColl()->descriptionToFile().empty());
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"two"});
}

using ModifyFileDeathTest = ModifyFile;

TEST_F(ModifyFileDeathTest, EndsTheProcessBeforeLoadingForAKeyringThatIsNotManaged) {
    keys.keyring(".foreign");
    write(file("a"), "one");
    tracesToStandardError();
    EXPECT_DEATH(sm->modifyFile(".foreign", file("a")),
                 deathBehind("5 modifyFile: .foreign, " + file("a"), "modifyFile", "keyColl"));
}

} // namespace

} // namespace Vestrel::Tests
