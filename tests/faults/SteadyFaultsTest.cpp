// SPDX-License-Identifier: Apache-2.0
// Lets each call of the handlers fail: what is traced, and what the next event finds.
#include "tests/faults/FaultWorld.h"
#include "tests/faults/FileCalls.h"

#include <cerrno>

namespace Vestrel::Tests {

namespace {

class SteadyFault : public FaultWorld {
protected:
    SteadyFault() { settle(); }

    // A state machine that has taken in everything, with the loop that serves it.
    void settle() {
        startAnew();
        loop = Zell::ActivityFacility::activityManager();
        dispatch();
        clear();
        settled_ = picture()[".ima"];
    }

    void end() { endWithNothingLeft(); }

    static std::string cause(int error) { return std::strerror(error); }

    KeyringPicture ima() const { return picture().at(".ima"); }

    // What is there without the failure, with this certificate beside it.
    KeyringPicture withNew(const std::string& name) const {
        KeyringPicture one = settled_;
        one.files[file(name)] = described(name);
        one.known.insert(described(name));
        one.inKernel.insert(described(name));
        return one;
    }

    // What is there without this certificate.
    KeyringPicture without(const std::string& fileName, const std::string& name) const {
        KeyringPicture one = settled_;
        one.files.erase(file(fileName));
        one.known.erase(described(name));
        one.inKernel.erase(described(name));
        return one;
    }

    const KeyringPicture& settled() const { return settled_; }

private:
    KeyringPicture settled_;
};

// What goes by the record alone cannot fail by the file.
TEST_F(SteadyFault, OfTheFileItselfDoesNotTouchItsRemoval) {
    for (const char* const call : {"open", "stat", "fstat"}) {
        {
            const FailingFileCall failure(call, 1, EIO);
            sm->removeFile(".ima", file("present"));
            EXPECT_FALSE(FailingFileCall::hasStruck()) << call;
        }
        dispatch();
        EXPECT_EQ(ima(), without("present", present(".ima")));
        sm->loadFile(".ima", file("present"));
        dispatch();
        EXPECT_EQ(ima(), settled());
    }
}

TEST_F(SteadyFault, OfReadingTheDirectoryWatchKeepsTheEventsForTheNextTime) {
    for (const int error : severalReadErrors()) {
        put("new", "new");
        calls.failNext("read", error);
        sm->handleInotify(".ima");
        EXPECT_EQ(traces(1), TraceLines{"1 handleInotify: read: " + cause(error)});
        EXPECT_EQ(ima(), settled());
        sm->handleInotify(".ima");
        sm->handleKeyringWatch(".ima");
        EXPECT_EQ(ima(), withNew("new"));
        EXPECT_EQ(traces(1).size(), 1U) << "nothing more failed";
        end();
        settle();
    }
}

TEST_F(SteadyFault, OfALaterReadOfTheDirectoryWatchLosesNothingThatWasRead) {
    put("new", "new");
    std::filesystem::rename(file("present"), "/etc/keys/moved-out");
    calls.failNth("read", 2 + 1, EIO); // behind the events, and the one of the new certificate
    sm->handleInotify(".ima");
    EXPECT_EQ(traces(1), TraceLines{"1 handleInotify: read: " + cause(EIO)});
    KeyringPicture expected = withNew("new");
    expected.files.erase(file("present"));
    dispatch();
    expected.known.erase(described(present(".ima")));
    expected.inKernel.erase(described(present(".ima")));
    EXPECT_EQ(ima(), expected) << "the move out was settled though the drain ended in an error";
    end();
}

TEST_F(SteadyFault, OfReadingTheQueueKeepsTheNotificationsForTheNextTime) {
    for (const int error : severalReadErrors()) {
        const key_serial_t key = keys.addKey(".ima", "by another process");
        calls.failNext("read", error);
        sm->handleKeyringWatch(".ima");
        EXPECT_EQ(traces(1), TraceLines{"1 handleKeyringWatch: read: " + cause(error)});
        EXPECT_EQ(keyColl()->key(key), nullptr);
        sm->handleKeyringWatch(".ima");
        EXPECT_NE(keyColl()->key(key), nullptr);
        EXPECT_EQ(traces(1).size(), 1U);
        end();
        settle();
    }
}

TEST_F(SteadyFault, OfDescribingALinkedKeyLeavesItUnrecordedAndTheNextOneIs) {
    for (const int error : severalErrors()) {
        const key_serial_t lost = keys.addKey(".ima", "not described");
        const key_serial_t next = keys.addKey(".ima", "described");
        keys.failNext("keyctl_describe_alloc", error);
        sm->handleKeyringWatch(".ima");
        EXPECT_EQ(traces(1), TraceLines{"1 getKey: keyctl_describe_alloc: " + cause(error)});
        EXPECT_EQ(keyColl()->key(lost), nullptr);
        EXPECT_NE(keyColl()->key(next), nullptr);
        end();
        settle();
    }
}

TEST_F(SteadyFault, OfAddingAKeyIsReportedAndTheRewrittenFileIsLoaded) {
    for (const int error : severalErrors()) {
        put("new", "new");
        keys.failNext("add_key", error);
        dispatch();
        EXPECT_EQ(messages, Texts{failure(file("new"), ".ima", error)});
        EXPECT_EQ(traces(1), TraceLines{});
        EXPECT_EQ(ima(), settled());
        put("new", "new");
        dispatch();
        EXPECT_EQ(ima(), withNew("new"));
        end();
        settle();
    }
}

// A keyring that was replaced is looked up again; the watch is still that of the former one.
TEST_F(SteadyFault, OfTheLookUpOfAReplacedKeyringIsReportedAndTheRewrittenFileIsLoaded) {
    for (const int error : severalErrors()) {
        keys.removeKeyring(".ima");
        keys.keyring(".ima");
        sm->handleKeyringWatch(".ima");
        clear();
        const Picture before = picture();
        put("new", "new");
        keys.failNext("find_key_by_type_and_desc", error);
        sm->handleInotify(".ima");
        EXPECT_EQ(messages, Texts{failure(file("new"), ".ima", error)});
        EXPECT_EQ(traces(1), TraceLines{});
        EXPECT_EQ(picture(), before);
        clear();
        put("new", "new");
        sm->handleInotify(".ima");
        Picture expected = before;
        expected[".ima"].files[file("new")] = described("new");
        expected[".ima"].inKernel.insert(described("new"));
        EXPECT_EQ(picture(), expected);
        EXPECT_EQ(messages, Texts{});
        end();
        settle();
    }
}

TEST_F(SteadyFault, OfDescribingTheLoadedKeyLeavesTheFileUnmapped) {
    for (const int error : severalErrors()) {
        put("new", "new");
        keys.failNext("keyctl_describe_alloc", error);
        dispatch();
        EXPECT_EQ(traces(1), TraceLines{"1 getKey: keyctl_describe_alloc: " + cause(error)});
        KeyringPicture expected = withNew("new");
        expected.files.erase(file("new"));
        EXPECT_EQ(ima(), expected) << "its key is there all the same";
        end();
        settle();
    }
}

// Each of the two descriptions of a reload: with the first gone the file is not mapped anew, with
// the second gone its old mapping is dropped, which is the new one too where it did not change.
TEST_F(SteadyFault, OfEitherDescriptionOfAReloadFollowsFromTheOther) {
    for (const int error : severalErrors()) {
        put("present", "changed");
        keys.failNth("keyctl_describe_alloc", 1, error);
        dispatch();
        EXPECT_EQ(traces(1), TraceLines{"1 getKey: keyctl_describe_alloc: " + cause(error)});
        KeyringPicture expected = without("present", present(".ima"));
        expected.known.insert(described("changed"));
        expected.inKernel.insert(described("changed"));
        EXPECT_EQ(ima(), expected);
        end();
        settle();

        put("present", "changed");
        keys.failNth("keyctl_describe_alloc", 2, error);
        dispatch();
        EXPECT_EQ(traces(1), TraceLines{"1 getKey: keyctl_describe_alloc: " + cause(error)});
        expected.files[file("present")] = described("changed");
        EXPECT_EQ(ima(), expected);
        end();
        settle();
    }
}

TEST_F(SteadyFault, OfTheQuestionWhetherAKeyIsThereLeavesItLinkedInSilence) {
    for (const int error : severalErrors()) {
        std::filesystem::remove(file("present"));
        keys.failNext("keyctl_describe", error);
        dispatch();
        EXPECT_EQ(traces(1), TraceLines{});
        KeyringPicture expected = settled();
        expected.files.erase(file("present"));
        EXPECT_EQ(ima(), expected);
        end();
        settle();
    }
}

TEST_F(SteadyFault, OfUnlinkingLeavesTheKeyLinkedAndTheMapsUpdated) {
    for (const int error : severalErrors()) {
        std::filesystem::remove(file("present"));
        keys.failNext("keyctl_unlink", error);
        dispatch();
        EXPECT_EQ(traces(1), TraceLines{"1 unlinkKey: keyctl_unlink: " + cause(error)});
        KeyringPicture expected = settled();
        expected.files.erase(file("present"));
        EXPECT_EQ(ima(), expected);
        end();
        settle();
    }
}

TEST_F(SteadyFault, LeavesTheOtherKeyringsAlone) {
    const Picture before = picture();
    put("new", "new");
    keys.failNext("keyctl_describe_alloc", EACCES);
    std::filesystem::remove(file("present"));
    keys.failNext("keyctl_unlink", EACCES);
    dispatch();
    Picture after = picture();
    EXPECT_NE(after.at(".ima"), before.at(".ima"));
    after[".ima"] = before.at(".ima");
    EXPECT_EQ(after, before);
    end();
}

} // namespace

} // namespace Vestrel::Tests
