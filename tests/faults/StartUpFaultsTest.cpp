// SPDX-License-Identifier: Apache-2.0
// Lets each call of the start-up fail at each of its turns: what is traced, what comes of the
// keyring that it strikes, and that nothing else changes.
#include "tests/faults/FaultWorld.h"
#include "tests/faults/FileCalls.h"

#include <cerrno>
#include <functional>
#include <utility>

namespace Vestrel::Tests {

namespace {

using Change = std::function<void(KeyringPicture&)>;

class StartUpFault : public FaultWorld {
protected:
    StartUpFault() {
        startAnew();
        clean_ = picture();
        systemCalls_ = calls.calls();
        keyCalls_ = keys.calls();
        EXPECT_EQ(traces(1), TraceLines{});
        EXPECT_EQ(messages, Texts{});
        endWithNothingLeft();
    }

    std::vector<std::size_t> systemTurns(const std::string& call) const {
        return turnsOf(systemCalls_, call);
    }

    std::vector<std::size_t> keyTurns(const std::string& call) const {
        return turnsOf(keyCalls_, call);
    }

    // With one failure prepared: these lines, these messages, and a change of this keyring only.
    void expectAfterStart(const std::string& keyring, const Change& change, const Texts& lines,
                          const Texts& raised = {}) {
        startAnew();
        expectPicture(keyring, change);
        EXPECT_EQ(traces(1), lines);
        EXPECT_EQ(messages, raised);
        endWithNothingLeft();
    }

    void expectPicture(const std::string& keyring, const Change& change) {
        Picture expected = clean_;
        if (!keyring.empty()) {
            change(expected[keyring]);
        }
        EXPECT_EQ(picture(), expected);
    }

    // A system call that is made once for each keyring, in their order.
    void expectOncePerKeyring(const std::string& recorded, const std::string& line,
                              const Change& change) {
        const std::string name = recorded.substr(0, recorded.find(' '));
        const auto turns = systemTurns(recorded);
        ASSERT_EQ(turns.size(), keyringNames().size()) << recorded;
        for (std::size_t i = 0; i < turns.size(); ++i) {
            for (const int error : severalErrors()) {
                SCOPED_TRACE(keyringNames()[i] + " " + std::strerror(error));
                calls.failNth(name, turns[i], error);
                expectAfterStart(keyringNames()[i], change, {line + std::strerror(error)});
            }
        }
    }

    static void withoutDirectory(KeyringPicture& picture) {
        picture.hasInotify = false;
        picture.isDirectoryFollowed = false;
    }

    static void withoutQueue(KeyringPicture& picture) {
        picture.hasQueue = false;
        picture.isQueueFollowed = false;
        picture.kernelWatches.clear();
    }

    std::string describedMissing(const std::string& keyring) const {
        return described(missing(keyring));
    }

    // The turns of the reads that follow each call of that name.
    std::vector<std::size_t> readsBehind(const std::string& before) const {
        std::vector<std::size_t> turns;
        std::size_t turn = 0;
        bool isNext = false;
        for (const std::string& call : systemCalls_) {
            if (call.starts_with("read ")) {
                ++turn;
                if (std::exchange(isNext, false)) {
                    turns.push_back(turn);
                }
            } else {
                isNext = call.starts_with(before);
            }
        }
        return turns;
    }

    std::set<std::size_t> readsOfWatches() const {
        std::set<std::size_t> turns;
        for (const char* const before : {"inotify_add_watch ", "ioctl "}) {
            const auto some = readsBehind(before);
            turns.insert(some.begin(), some.end());
        }
        return turns;
    }

    struct Outcome {
        Picture picture;
        Texts messages;

        bool operator==(const Outcome&) const = default;
    };

    // What can come of one certificate that cannot be read: it is not found to be one, or it is,
    // and then cannot be loaded.
    std::vector<Outcome> withoutOneCertificate(int error) const {
        std::vector<Outcome> all;
        for (const auto& [name, one] : clean_) {
            for (const auto& [path, description] : one.files) {
                const bool isMissing = path == file("missing", name);
                Outcome unmapped{clean_, {}};
                unmapped.picture[name].files.erase(path);
                if (isMissing) {
                    unmapped.picture[name].inKernel.erase(description);
                    Outcome refused{clean_, {failure(path, name, error)}};
                    refused.picture[name].inKernel.erase(description);
                    all.push_back(refused);
                }
                all.push_back(unmapped);
            }
        }
        return all;
    }

    void expectOneCertificateLess(int error) {
        const Outcome outcome{picture(), messages};
        EXPECT_EQ(std::ranges::count(withoutOneCertificate(error), outcome), 1)
            << testing::PrintToString(outcome.picture) << testing::PrintToString(messages);
        EXPECT_EQ(traces(1), TraceLines{});
        endWithNothingLeft();
    }

    // Each of the six files is read once, and those that are missing once more to load them.
    static constexpr std::size_t certificateReadings = 6 + 2;

    static constexpr const char* writable[] = {".ima", ".secondary_trusted_keys"};

private:
    Picture clean_;
    Texts systemCalls_;
    Texts keyCalls_;
};

TEST_F(StartUpFault, OfInotifyInitLeavesTheKeyringWithoutADirectoryWatch) {
    expectOncePerKeyring("inotify_init1 ",
                         "1 createInotifyWatch: inotify_init1: ", withoutDirectory);
}

TEST_F(StartUpFault, OfInotifyAddWatchLeavesTheKeyringWithoutADirectoryWatch) {
    expectOncePerKeyring("inotify_add_watch ",
                         "1 createInotifyWatch: inotify_add_watch: ", withoutDirectory);
}

TEST_F(StartUpFault, OfPipeLeavesTheKeyringWithoutAQueue) {
    expectOncePerKeyring("pipe2 0x80", "1 createKeyringWatch: pipe2: ", [](KeyringPicture& one) {
        withoutQueue(one);
        one.watchId = 0;
    });
}

TEST_F(StartUpFault, OfTheQueuesSizeLeavesTheKeyringWithoutAQueue) {
    expectOncePerKeyring("ioctl ", "1 createKeyringWatch: ioctl IOC_WATCH_QUEUE_SET_SIZE: ",
                         [](KeyringPicture& one) {
                             withoutQueue(one);
                             one.watchId = 0;
                         });
}

TEST_F(StartUpFault, OfTheWatchLeavesTheKeyringWithoutAQueueButWithItsId) {
    const auto turns = keyTurns("keyctl_watch_key ");
    ASSERT_EQ(turns.size(), keyringNames().size());
    for (std::size_t i = 0; i < turns.size(); ++i) {
        for (const int error : severalErrors()) {
            keys.failNth("keyctl_watch_key", turns[i], error);
            expectAfterStart(
                keyringNames()[i], withoutQueue,
                {std::string("1 createKeyringWatch: keyctl_watch_key: ") + std::strerror(error)});
        }
    }
}

TEST_F(StartUpFault, OfTheLookUpLeavesTheKeyringAlone) {
    for (const std::string& name : keyringNames()) {
        const auto turn = keyTurns("find_key_by_type_and_desc keyring " + name + " ").at(0);
        for (const int error : severalErrors()) {
            SCOPED_TRACE(name + " " + std::strerror(error));
            keys.failNth("find_key_by_type_and_desc", turn, error);
            expectAfterStart(
                name,
                [&](KeyringPicture& one) {
                    one = {};
                    one.inKernel = {described(fileless(name)), described(present(name))};
                },
                {std::string("1 createWatcher: find_key_by_type_and_desc: ") +
                 std::strerror(error) + ", keyring " + name});
        }
    }
}

TEST_F(StartUpFault, OfTheLoadersLookUpIsReportedAndTheFileStaysMapped) {
    for (const std::string name : writable) {
        const auto turns = keyTurns("find_key_by_type_and_desc keyring " + name + " ");
        ASSERT_EQ(turns.size(), 2U);
        for (const int error : severalErrors()) {
            keys.failNth("find_key_by_type_and_desc", turns[1], error);
            expectAfterStart(
                name, [&](KeyringPicture& one) { one.inKernel.erase(describedMissing(name)); }, {},
                {failure(file("missing", name), name, error)});
        }
    }
}

TEST_F(StartUpFault, OfAddingTheKeyIsReportedAndTheFileStaysMapped) {
    const auto turns = keyTurns("add_key ");
    ASSERT_EQ(turns.size(), std::size(writable));
    for (std::size_t i = 0; i < turns.size(); ++i) {
        const std::string name = writable[i];
        for (const int error : severalErrors()) {
            keys.failNth("add_key", turns[i], error);
            expectAfterStart(
                name, [&](KeyringPicture& one) { one.inKernel.erase(describedMissing(name)); }, {},
                {failure(file("missing", name), name, error)});
        }
    }
}

TEST_F(StartUpFault, OfReadingTheKeyringOffersEveryCertificateToIt) {
    for (std::size_t i = 0; i < keyringNames().size(); ++i) {
        const std::string& name = keyringNames()[i];
        for (const int error : severalErrors()) {
            SCOPED_TRACE(name + " " + std::strerror(error));
            keys.failNth("keyctl_read_alloc", i + 1, error);
            const Texts refused =
                isWritable(name) ? Texts{} : Texts{failure(file("present", name), name, EACCES)};
            expectAfterStart(
                name, [](KeyringPicture& one) { one.known.clear(); },
                {std::string("1 createWatcher: keyctl_read_alloc: ") + std::strerror(error)},
                refused);
        }
    }
}

TEST_F(StartUpFault, OfDescribingAKeyForgetsItAndOffersItsCertificateAgain) {
    const std::size_t perWritable = 3; // two keys that are there, and the loaded one
    std::size_t turn = 0;
    for (const std::string& name : keyringNames()) {
        const std::size_t count = isWritable(name) ? perWritable : 2;
        for (std::size_t i = 0; i < count; ++i) {
            ++turn;
            for (const int error : severalErrors()) {
                SCOPED_TRACE(name + " " + std::to_string(i) + " " + std::strerror(error));
                keys.failNth("keyctl_describe_alloc", turn, error);
                const bool isOffered = i == 1 && !isWritable(name);
                expectAfterStart(
                    name,
                    [&](KeyringPicture& one) {
                        one.known.erase(i == 0   ? described(fileless(name))
                                        : i == 1 ? described(present(name))
                                                 : "");
                    },
                    {std::string("1 getKey: keyctl_describe_alloc: ") + std::strerror(error)},
                    isOffered ? Texts{failure(file("present", name), name, EACCES)} : Texts{});
            }
        }
    }
    EXPECT_EQ(turn, keyTurns("keyctl_describe_alloc ").size()) << "each turn was tried";
}

TEST_F(StartUpFault, OfTheFirstReadOfAWatchEndsThatDrainOnly) {
    struct Watch {
        const char* before; // the call after which it is read for the first time
        const char* handler;
    };

    for (const Watch& watch :
         {Watch{"inotify_add_watch ", "handleInotify"}, Watch{"ioctl ", "handleKeyringWatch"}}) {
        const auto turns = readsBehind(watch.before);
        ASSERT_EQ(turns.size(), keyringNames().size());
        for (const std::size_t turn : turns) {
            for (const int error : severalReadErrors()) {
                calls.failNth("read", turn, error);
                expectAfterStart(
                    "", {},
                    {"1 " + std::string(watch.handler) + ": read: " + std::strerror(error)});
            }
        }
    }
}

TEST_F(StartUpFault, OfOpeningACertificateCostsThatCertificateOnly) {
    for (const char* const call : {"open", "fstat"}) {
        for (std::size_t turn = 1; turn <= certificateReadings; ++turn) {
            for (const int error : severalErrors()) {
                SCOPED_TRACE(std::string(call) + " " + std::to_string(turn));
                const FailingFileCall failure(call, turn, error);
                startAnew();
                EXPECT_TRUE(FailingFileCall::hasStruck());
                expectOneCertificateLess(error);
            }
        }
        const FailingFileCall failure(call, certificateReadings + 1, EACCES);
        expectAfterStart("", {}, {});
        EXPECT_FALSE(FailingFileCall::hasStruck()) << "each turn was tried";
    }
}

TEST_F(StartUpFault, OfLookingAtADirectoryLeavesItUnscanned) {
    for (std::size_t i = 0; i < keyringNames().size(); ++i) {
        const std::string& name = keyringNames()[i];
        for (const int error : severalErrors()) {
            SCOPED_TRACE(name + " " + std::strerror(error));
            populate();
            clear();
            {
                const FailingFileCall failure("stat", i + 1, error);
                start(true);
                EXPECT_TRUE(FailingFileCall::hasStruck());
            }
            expectPicture(name, [&](KeyringPicture& one) {
                one.files.clear();
                one.inKernel.erase(describedMissing(name));
            });
            EXPECT_EQ(traces(1), Texts{});
            EXPECT_EQ(messages, Texts{});
            endWithNothingLeft();
        }
    }
}

TEST_F(StartUpFault, OfReadingACertificateCostsThatCertificateOnly) {
    const std::set<std::size_t> watches = readsOfWatches();
    const std::size_t count = systemTurns("read ").size();
    for (std::size_t turn = 1; turn <= count; ++turn) {
        if (watches.contains(turn)) {
            continue;
        }
        for (const int error : severalErrors()) {
            SCOPED_TRACE("read " + std::to_string(turn));
            calls.failNth("read", turn, error);
            startAnew();
            expectOneCertificateLess(error);
        }
    }
}

TEST_F(StartUpFault, OfAReadThatIsInterruptedIsRepairedForCertificates) {
    const std::set<std::size_t> watches = readsOfWatches();
    const std::size_t count = systemTurns("read ").size();
    for (std::size_t turn = 1; turn <= count; ++turn) {
        if (!watches.contains(turn)) {
            calls.failNth("read", turn, EINTR);
            expectAfterStart("", {}, {});
        }
    }
}

TEST_F(StartUpFault, OfClosingAFileChangesNothing) {
    const std::size_t count = systemTurns("close ").size();
    EXPECT_GE(count, std::size_t{6})
        << "a certificate is read for each file, and once more to load";
    for (std::size_t turn = 1; turn <= count; ++turn) {
        for (const int error : severalErrors()) {
            SCOPED_TRACE("close " + std::to_string(turn) + " " + std::strerror(error));
            calls.failNth("close", turn, error);
            expectAfterStart("", {}, {});
        }
    }
}

} // namespace

} // namespace Vestrel::Tests
