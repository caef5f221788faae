// SPDX-License-Identifier: Apache-2.0
// Tests what becomes of files that change while no state machine watches.
#include "agent/Handover.h"

#include "tests/keyring/CertificateDirectories.h"

#include <optional>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

class HandoverTest : public CertificateDirectories {
protected:
    using Descriptions = std::vector<std::string>;

    // A state machine that has taken these files of certificates of the same names.
    void startWith(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            put(name, name);
        }
        start();
        dispatch();
    }

    // What the agent does when it rebuilds, with `meanwhile` in the unwatched moment.
    void rebuild(const std::function<void()>& meanwhile) {
        const Handover handover(*sm);
        stop();
        meanwhile();
        start();
        left_ = keys.descriptionsOf(".ima");
        handover.takenUpBy(*sm);
        dispatch();
    }

    Descriptions linked() const { return keys.descriptionsOf(".ima"); }

    static Descriptions of(const std::vector<std::string>& names) {
        Descriptions all;
        std::ranges::transform(names, std::back_inserter(all), described);
        return all;
    }

    Descriptions left_; // in the keyring after the new one's start
};

TEST_F(HandoverTest, UnlinksTheKeyOfAFileThatWentMeanwhile) {
    startWith({"gone", "kept"});
    rebuild([] { fs::remove(file("gone")); });
    EXPECT_EQ(left_.size(), 2U) << "a start unlinks nothing";
    EXPECT_EQ(linked(), of({"kept"}));
    EXPECT_EQ(keyColl()->key().size(), 1U);
    EXPECT_FALSE(keyColl()->fileToDescriptionHas(file("gone")));
    EXPECT_FALSE(keyColl()->descriptionToFileHas(described("gone")));
}

TEST_F(HandoverTest, UnlinksTheKeyOfAFileThatHoldsAnotherCertificateNow) {
    startWith({"changed"});
    rebuild([] { put("changed", "other"); });
    EXPECT_EQ(left_.size(), 2U);
    EXPECT_EQ(linked(), of({"other"}));
    EXPECT_EQ(keyColl()->fileToDescription(file("changed")), Orvo::String(described("other")));
}

TEST_F(HandoverTest, UnlinksTheKeyOfAFileThatIsNoCertificateAnyMore) {
    startWith({"spoilt"});
    rebuild([] { write(file("spoilt"), "no certificate"); });
    EXPECT_EQ(linked(), Descriptions{});
    EXPECT_FALSE(keyColl()->fileToDescriptionHas(file("spoilt")));
}

TEST_F(HandoverTest, KeepsTheKeyThatAnotherFileCarries) {
    put("twin", "one");
    startWith({"one"});
    rebuild([] { fs::remove(file("twin")); });
    EXPECT_EQ(linked(), of({"one"}));
    fs::remove(file("one"));
    dispatch();
    EXPECT_EQ(linked(), Descriptions{});
}

TEST_F(HandoverTest, DoesNothingWhereNothingChanged) {
    keys.addKey(".ima", "by hand");
    startWith({"one", "two"});
    const auto before = keys.keysOf(".ima");
    rebuild([] { put("three", "three"); });
    EXPECT_EQ(linked().size(), 4U);
    for (const key_serial_t serial : before) {
        EXPECT_EQ(std::ranges::count(keys.keysOf(".ima"), serial), 1);
    }
    EXPECT_EQ(keyCalls("keyctl_unlink"), Descriptions{});
    EXPECT_EQ(tracesOf("modifyFile"), TraceLines{});
}

TEST_F(HandoverTest, TakesARemovalThatIsStillToBeHandledOnce) {
    startWith({"gone"});
    const Handover handover(*sm);
    stop();
    bool isToGo = true;
    onTrace = [&](const std::string& line) { // watched already, not read yet
        if (line.starts_with("5 createWatcher: .secondary") && std::exchange(isToGo, false)) {
            fs::remove(file("gone"));
        }
    };
    start();
    onTrace = nullptr;
    ASSERT_FALSE(isToGo);
    handover.takenUpBy(*sm);
    dispatch();
    EXPECT_EQ(linked(), Descriptions{});
}

TEST_F(HandoverTest, SaysNothingOfTheFilesOfAnotherDirectoryUnderTheName) {
    startWith({"one"});
    rebuild([] {
        fs::rename(directory(), directory() + ".before");
        fs::create_directory(directory());
    });
    EXPECT_EQ(linked(), of({"one"}));
    fs::remove_all(directory() + ".before");
}

TEST_F(HandoverTest, SaysNothingOfTheFilesOfADirectoryThatIsNotThere) {
    startWith({"one"});
    rebuild([] { fs::remove_all(directory()); });
    EXPECT_EQ(linked(), of({"one"}));
}

TEST_F(HandoverTest, SaysNothingOfADirectoryThatWasNotWatched) {
    calls.failNth("inotify_init1", 1, EMFILE);
    startWith({"one"});
    rebuild([] { fs::remove(file("one")); });
    EXPECT_EQ(linked(), of({"one"}));
}

TEST_F(HandoverTest, SaysNothingOfTheFilesOfAKeyringThatTheKernelHasNoMore) {
    startWith({"one"});
    const Handover handover(*sm);
    stop();
    keys.removeKeyring(".ima");
    start();
    handover.takenUpBy(*sm);
    EXPECT_EQ(tracesOf("modifyFile"), TraceLines{});
    EXPECT_EQ(traces(1), TraceLines{});
}

class TemporaryFiles : public HandoverTest {
protected:
    const std::string temporary_ = file("signer.der.integrity-tmp");
};

TEST_F(TemporaryFiles, OfAStartKeepNoKeyTrusted) {
    put("signer.der.integrity-tmp", "signer");
    startWith({});
    ASSERT_TRUE(keyColl()->fileToDescriptionHas(temporary_)) << "a start takes any name";
    temporaryFilesForget(*coll);
    EXPECT_EQ(linked(), of({"signer"})) << "it stays until the file gets its name, and then";
    fs::rename(temporary_, file("signer.der"));
    dispatch();
    EXPECT_EQ(linked(), of({"signer"}));
    fs::remove(file("signer.der"));
    dispatch();
    EXPECT_EQ(linked(), Descriptions{});
}

TEST_F(TemporaryFiles, LeaveTheRecordOfOthersAlone) {
    put("signer.der.integrity-tmp", "signer");
    startWith({"signer", "other"});
    temporaryFilesForget(*coll);
    EXPECT_EQ(keyColl()->fileToDescription().size(), 2U);
    EXPECT_FALSE(keyColl()->fileToDescriptionHas(temporary_));
    fs::remove(file("signer"));
    dispatch();
    EXPECT_EQ(linked(), of({"other"}));
}

} // namespace

} // namespace Vestrel::Tests
