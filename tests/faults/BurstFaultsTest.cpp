// SPDX-License-Identifier: Apache-2.0
// Lets the calls of one drain fail in their turn: the file or key that is struck bears it, the two
// beside it and the other keyrings do not.
#include "tests/faults/FaultWorld.h"
#include "tests/faults/FileCalls.h"

#include <cerrno>
#include <functional>

namespace Vestrel::Tests {

namespace {

constexpr std::size_t burst = 3;

class BurstFault : public FaultWorld, public testing::WithParamInterface<std::string> {
protected:
    static const std::string& keyring() { return GetParam(); }

    static std::string fileName(std::size_t turn) { return "burst" + std::to_string(turn); }

    static std::string path(std::size_t turn) { return file(fileName(turn), keyring()); }

    static std::string name(std::size_t turn) { return keyring() + " " + fileName(turn); }

    static std::string description(std::size_t turn) { return described(name(turn)); }

    // Runs `strike` for each turn and error on a state machine that has taken in everything.
    void strikeEach(const std::vector<int>& errors,
                    const std::function<void(std::size_t turn, int error)>& strike) {
        for (std::size_t turn = 1; turn <= burst; ++turn) {
            for (const int error : errors) {
                SCOPED_TRACE("turn " + std::to_string(turn) + ", " + std::strerror(error));
                startAnew();
                settle();
                strike(turn, error);
                endWithNothingLeft();
            }
        }
    }

    void settle() {
        handle();
        EXPECT_EQ(traces(1), TraceLines{});
        clear();
        picture_ = picture();
    }

    void putFiles() {
        for (std::size_t turn = 1; turn <= burst; ++turn) {
            put(fileName(turn), name(turn), keyring());
        }
    }

    static void removeFiles() {
        for (std::size_t turn = 1; turn <= burst; ++turn) {
            std::filesystem::remove(path(turn));
        }
    }

    void handle() {
        for (const std::string& each : keyringNames()) {
            sm->handleInotify(each);
            sm->handleKeyringWatch(each);
        }
    }

    // The settled picture with what `change` does to the keyring for each turn.
    void expectPicture(const std::function<void(KeyringPicture&, std::size_t turn)>& change) {
        Picture expected = picture_;
        for (std::size_t turn = 1; turn <= burst; ++turn) {
            change(expected[keyring()], turn);
        }
        EXPECT_EQ(picture(), expected);
    }

    static void add(KeyringPicture& one, std::size_t turn) {
        one.files[path(turn)] = description(turn);
        one.known.insert(description(turn));
        one.inKernel.insert(description(turn));
    }

    // One line of level 1 and no message.
    void expectTraced(const std::string& call, int error) const {
        EXPECT_EQ(traces(1), TraceLines{"1 " + call + ": " + std::strerror(error)});
        EXPECT_EQ(messages, Texts{});
    }

    void expectRefused(std::size_t turn, int error) const {
        EXPECT_EQ(messages, Texts{failure(path(turn), keyring(), error)});
        EXPECT_EQ(traces(1), TraceLines{});
    }

private:
    Picture picture_;
};

TEST_P(BurstFault, OfOpeningAFileKeepsThatFileOut) {
    for (const char* const call : {"open", "fstat"}) {
        SCOPED_TRACE(call);
        strikeEach(severalErrors(), [&](std::size_t struck, int error) {
            putFiles();
            {
                const FailingFileCall failure(call, struck, error);
                handle();
                EXPECT_TRUE(FailingFileCall::hasStruck());
            }
            expectRefused(struck, error);
            expectPicture([&](KeyringPicture& one, std::size_t turn) {
                if (turn != struck) {
                    add(one, turn);
                }
            });
        });
    }
}

TEST_P(BurstFault, OfLookingAtAFileSkipsThatFileInSilence) {
    strikeEach(severalErrors(), [this](std::size_t struck, int error) {
        putFiles();
        {
            const FailingFileCall failure("stat", struck, error);
            handle();
            EXPECT_TRUE(FailingFileCall::hasStruck());
        }
        EXPECT_EQ(traces(1), TraceLines{});
        EXPECT_EQ(messages, Texts{});
        expectPicture([&](KeyringPicture& one, std::size_t turn) {
            if (turn != struck) {
                add(one, turn);
            }
        });
    });
}

TEST_P(BurstFault, OfReadingAFileKeepsThatFileOut) {
    strikeEach(severalErrors(), [this](std::size_t struck, int error) {
        putFiles();
        calls.failNth("read", 1 + struck, error); // the first one gives the events
        sm->handleInotify(keyring());
        handle();
        expectRefused(struck, error);
        expectPicture([&](KeyringPicture& one, std::size_t turn) {
            if (turn != struck) {
                add(one, turn);
            }
        });
    });
}

TEST_P(BurstFault, OfAddingAKeyKeepsThatFileOut) {
    strikeEach(severalErrors(), [this](std::size_t struck, int error) {
        putFiles();
        keys.failNth("add_key", struck, error);
        handle();
        expectRefused(struck, error);
        expectPicture([&](KeyringPicture& one, std::size_t turn) {
            if (turn != struck) {
                add(one, turn);
            }
        });
    });
}

TEST_P(BurstFault, OfDescribingALoadedKeyLeavesThatFileUnmapped) {
    strikeEach(severalErrors(), [this](std::size_t struck, int error) {
        putFiles();
        keys.failNth("keyctl_describe_alloc", struck, error);
        handle();
        expectTraced("getKey: keyctl_describe_alloc", error);
        expectPicture([&](KeyringPicture& one, std::size_t turn) {
            add(one, turn);
            if (turn == struck) {
                one.files.erase(path(turn));
            }
        });
    });
}

TEST_P(BurstFault, OfDescribingALinkedKeyLeavesThatKeyUnrecorded) {
    strikeEach(severalErrors(), [this](std::size_t struck, int error) {
        putFiles();
        sm->handleInotify(keyring());
        keys.failNth("keyctl_describe_alloc", struck, error);
        handle();
        expectTraced("getKey: keyctl_describe_alloc", error);
        expectPicture([&](KeyringPicture& one, std::size_t turn) {
            add(one, turn);
            if (turn == struck) {
                one.known.erase(description(turn));
            }
        });
    });
}

TEST_P(BurstFault, OfReadingTheQueueKeepsThatKeyAndTheNextOnesForTheNextTime) {
    strikeEach(severalReadErrors(), [this](std::size_t struck, int error) {
        for (std::size_t turn = 1; turn <= burst; ++turn) {
            keys.addKey(keyring(), description(turn));
        }
        calls.failNth("read", struck, error);
        sm->handleKeyringWatch(keyring());
        expectTraced("handleKeyringWatch: read", error);
        expectPicture([&](KeyringPicture& one, std::size_t turn) {
            one.inKernel.insert(description(turn));
            if (turn < struck) {
                one.known.insert(description(turn));
            }
        });
        handle();
        expectTraced("handleKeyringWatch: read", error);
        expectPicture([&](KeyringPicture& one, std::size_t turn) {
            add(one, turn);
            one.files.erase(path(turn));
        });
    });
}

TEST_P(BurstFault, OfTheQuestionWhetherAKeyIsThereLeavesThatKeyLinkedInSilence) {
    strikeEach(severalErrors(), [this](std::size_t struck, int error) {
        putFiles();
        settle();
        removeFiles();
        keys.failNth("keyctl_describe", struck, error);
        handle();
        EXPECT_EQ(traces(1), TraceLines{});
        expectPicture([&](KeyringPicture& one, std::size_t turn) {
            one.files.erase(path(turn));
            if (turn != struck) {
                one.known.erase(description(turn));
                one.inKernel.erase(description(turn));
            }
        });
    });
}

TEST_P(BurstFault, OfUnlinkingLeavesThatKeyLinked) {
    strikeEach(severalErrors(), [this](std::size_t struck, int error) {
        putFiles();
        settle();
        removeFiles();
        keys.failNth("keyctl_unlink", struck, error);
        handle();
        expectTraced("unlinkKey: keyctl_unlink", error);
        expectPicture([&](KeyringPicture& one, std::size_t turn) {
            one.files.erase(path(turn));
            if (turn != struck) {
                one.known.erase(description(turn));
                one.inKernel.erase(description(turn));
            }
        });
    });
}

INSTANTIATE_TEST_SUITE_P(Of, BurstFault, testing::Values(".ima", ".secondary_trusted_keys"),
                         [](const auto& each) { return each.param.substr(1); });

} // namespace

} // namespace Vestrel::Tests
