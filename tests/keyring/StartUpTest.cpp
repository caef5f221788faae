// SPDX-License-Identifier: Apache-2.0
// Tests the start-up of the keyring state machine as a whole.
#include "platform/zell/Errors.h"
#include "tests/keyring/CertificateDirectories.h"
#include "tests/keyring/LibraryCalls.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/Unprivileged.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>

namespace Vestrel::Tests {

namespace {

class StartUp : public CertificateDirectories {
protected:
    // Starts, expects that an unreadable directory ends the start-up, and returns its cause.
    int causeOfFailure() {
        try {
            start();
        } catch (const std::filesystem::filesystem_error& failure) {
            return failure.code().value();
        }
        ADD_FAILURE() << "started";
        return 0;
    }
};

// An inotify instance and a pipe.
constexpr rlim_t descriptorsOfAKeyring = 3;

TEST_F(StartUp, WatchesTheFourKeyringsInTheirOrder) {
    start(true);
    std::vector<std::string> names;
    for (auto info = sm->watcherInfos().iterator(); info; ++info) {
        names.emplace_back(info.key().view());
    }
    const std::vector<std::string> expected{".ima", ".secondary_trusted_keys",
                                            ".builtin_trusted_keys", ".machine"};
    EXPECT_EQ(names, expected);
    std::vector<std::string> lookUps;
    for (const std::string& name : expected) {
        lookUps.push_back("find_key_by_type_and_desc keyring " + name + " 0");
    }
    EXPECT_EQ(keyCalls("find_key_by_type_and_desc"), lookUps);
}

TEST_F(StartUp, TracesItselfFirst) {
    start(true);
    EXPECT_EQ(traces().front(), "5 handleInitialized: ");
    EXPECT_EQ(tracesOf("handleInitialized").size(), 1U);
    EXPECT_EQ(traces()[1], "5 createWatcher: .ima");
    EXPECT_EQ(traces(1), TraceLines{}) << "nothing failed";
}

TEST_F(StartUp, TracesItselfBeforeItMakesAnything) {
    bool seen = false;
    onTrace = [&](const std::string& line) {
        if (line == "5 handleInitialized: ") {
            seen = true;
            EXPECT_FALSE(alive().contains(IntegrityKeyLoader::pelbinName));
        }
    };
    start();
    onTrace = nullptr;
    EXPECT_TRUE(seen);
    EXPECT_TRUE(alive().contains(IntegrityKeyLoader::pelbinName));
}

TEST_F(StartUp, SwitchesTheActivityManagerToEpollBeforeTheFirstKeyring) {
    auto& config = Zell::ActivityFacility::activityManagerConfig();
    config.useEpollIs(false);
    bool usesEpoll = false;
    onTrace = [&](const std::string& line) {
        if (line == "5 createWatcher: .ima") {
            usesEpoll = config.useEpoll();
        }
    };
    start();
    onTrace = nullptr;
    EXPECT_TRUE(usesEpoll);
}

TEST_F(StartUp, MakesTheKeyLoader) {
    start();
    EXPECT_TRUE(sm->keyLoader());
}

TEST_F(StartUp, DiscardsWhatTheCollectionHeldBeforeTheFirstKeyringIsProcessed) {
    const auto former = coll->keyringIs(".ima");
    former->keyIs({7, "from an earlier run", "asymmetric"});
    coll->keyringIs(".former");
    start();
    EXPECT_EQ(coll->keyringCount(), 4U);
    EXPECT_FALSE(coll->keyring(".former"));
    EXPECT_NE(keyColl(), former);
    EXPECT_TRUE(keyColl()->key().empty());
    EXPECT_EQ(keys.watchIdsOf(".ima"), std::vector<int>{1}) << "the first member";
    EXPECT_EQ(keys.watchIdsOf(".machine"), std::vector<int>{4});
}

TEST_F(StartUp, IsTheConstructorsWorkBeforeNotificationsAreOn) {
    put("a", "first");
    sm = Orvo::makeNode<IntegrityKeyringSm>(coll);
    EXPECT_FALSE(sm->hasNotificationActive());
    EXPECT_EQ(sm->refCount(), 1U);
    EXPECT_EQ(sm->watcherInfos().size(), 4U);
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("first")});
    dispatch();
    EXPECT_TRUE(keyColl()->key().empty()) << "the notification waits";
    sm->hasNotificationActiveIs(true);
    dispatch();
    EXPECT_EQ(keyColl()->key().size(), 1U);
}

TEST_F(StartUp, OfASecondStateMachineRebuildsEverythingFromKernelAndDisk) {
    const std::string file = put("a", "first");
    start();
    dispatch();
    stop();
    const key_serial_t key = keys.keysOf(".ima").at(0);
    start(true);
    EXPECT_TRUE(keyCalls("add_key").empty()) << "the key is there already";
    EXPECT_NE(keyColl()->key(key), nullptr);
    EXPECT_EQ(keyColl()->fileToDescription(file), Orvo::String(described("first")));
}

TEST_F(StartUp, TracesGoToTheHandleNamedAfterTheClass) {
    EXPECT_EQ(IntegrityKeyringSm::traceHandle().name(), "IntegrityKeyringSm");
    IntegrityKeyringSm::traceHandle().levelIs(1);
    start(true);
    EXPECT_EQ(traces(), TraceLines{}) << "a statement whose level is not enabled is skipped";
    IntegrityKeyringSm::traceHandle().levelIs(5);
}

TEST_F(StartUp, LoadsAFileThatIsRenamedIntoPlace) {
    start();
    put("a.integrity-tmp", "first");
    ASSERT_EQ(rename(file("a.integrity-tmp").c_str(), file("a").c_str()), 0);
    dispatch();
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("first")});
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), Orvo::String(described("first")));
    dispatch();
    EXPECT_EQ(keyColl()->key().size(), 1U);
}

TEST_F(StartUp, IsRefusedWithoutACollection) {
    try {
        integrityKeyringSmFactory(nullptr);
        ADD_FAILURE() << "made without a collection";
    } catch (const Zell::NullArgumentError& error) {
        EXPECT_STREQ(error.what(), "Vestrel::IntegrityKeyringSm needs a collection");
    }
    EXPECT_EQ(traces(), TraceLines{}) << "nothing was begun";
}

TEST_F(StartUp, LeavesAsAnExceptionWhenADirectoryCannotBeOpened) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's check of object types needs a descriptor of its own";
#endif
    const FewDescriptors few(descriptorsOfAKeyring);
    EXPECT_EQ(causeOfFailure(), EMFILE);
    EXPECT_FALSE(sm);
}

TEST_F(StartUp, LeavesAsAnExceptionWhenADirectoryMayNotBeOpened) {
    std::filesystem::permissions(directory(), std::filesystem::perms::none);
    const Unprivileged user;
    EXPECT_EQ(causeOfFailure(), EACCES);
}

TEST_F(StartUp, LeavesAsAnExceptionWhenADirectoryCannotBeRead) {
    const UnreadableDirectories unreadable(EIO);
    EXPECT_EQ(causeOfFailure(), EIO);
}

// The directories of two keyrings with three certificates each, whose entries come in an order of
// the file system's own.
class UnreadableEntry : public StartUp {
protected:
    struct Entry {
        std::string keyring;
        std::string name; // empty: the end of the directory
    };

    UnreadableEntry() {
        keys.removeKeyring(".builtin_trusted_keys");
        keys.removeKeyring(".machine");
        for (const std::string keyring : {".ima", ".secondary_trusted_keys"}) {
            for (const std::string name : {"a", "b", "c"}) {
                put(name, keyring + " " + name, keyring);
            }
            const auto inDirectory = entriesOf(keyring);
            entries_.insert(entries_.end(), inDirectory.begin(), inDirectory.end());
        }
        start();
        stop();
        forgetKeys();
        loop = nullptr;
    }

    const std::vector<Entry>& entries() const { return entries_; }

    // What a start has mapped, and loaded, that has read as many entries.
    void expectTakenIn(std::size_t count) const {
        for (const std::string keyring : {".ima", ".secondary_trusted_keys"}) {
            std::map<std::string, std::string> files;
            std::set<std::string> loaded;
            for (std::size_t i = 0; i < count; ++i) {
                const Entry& entry = entries_[i];
                if (entry.keyring == keyring && entry.name.size() == 1 && entry.name != ".") {
                    const std::string description = described(keyring + " " + entry.name);
                    files[file(entry.name, keyring)] = description;
                    loaded.insert(description);
                }
            }
            const auto inKernel = keys.descriptionsOf(keyring);
            EXPECT_EQ(std::set(inKernel.begin(), inKernel.end()), loaded);
            EXPECT_EQ(mapped(keyring), files);
        }
    }

    void forgetKeys() {
        for (const char* const keyring : {".ima", ".secondary_trusted_keys"}) {
            keys.clear(keyring);
        }
        keys.collectGarbage();
        coll->keyringDelAll();
        clear();
    }

private:
    static std::vector<Entry> entriesOf(const std::string& keyring) {
        DIR* const walk = opendir(directory(keyring).c_str());
        std::vector<Entry> all;
        while (const dirent* const entry = readdir(walk)) {
            all.push_back({keyring, entry->d_name});
        }
        closedir(walk);
        all.push_back({keyring, ""});
        return all;
    }

    std::map<std::string, std::string> mapped(const std::string& keyring) const {
        std::map<std::string, std::string> files;
        if (const auto known = keyColl(keyring)) {
            for (auto file = known->fileToDescription().iterator(); file; ++file) {
                files.emplace(file.key().view(), file->view());
            }
        }
        return files;
    }

    std::vector<Entry> entries_;
};

TEST_F(UnreadableEntry, KeepsTheKeysThatAreLoadedAndLeavesNothingOpen) {
    const auto descriptors = openDescriptors();
    const auto entities = alive();
    ASSERT_EQ(entries().size(), 2U * (3 + 2 + 1)) << "certificates, . and .., the end";
    for (std::size_t turn = 1; turn <= entries().size(); ++turn) {
        for (const int error : {EIO, EACCES, ENOMEM, EBADF, ESTALE, ENOENT}) {
            SCOPED_TRACE("entry " + std::to_string(turn) + ", " + std::strerror(error));
            {
                const UnreadableDirectories unreadable(error, turn);
                EXPECT_EQ(causeOfFailure(), error);
            }
            EXPECT_FALSE(sm);
            expectTakenIn(turn - 1);
            EXPECT_EQ(coll->keyringCount(), entries()[turn - 1].keyring == ".ima" ? 1U : 2U);
            EXPECT_EQ(openDescriptors(), descriptors);
            EXPECT_EQ(keys.openQueues(), 0U);
            EXPECT_EQ(traces(1), TraceLines{});
            EXPECT_EQ(messages, std::vector<std::string>{});
            forgetKeys();
            EXPECT_EQ(alive(), entities);
        }
    }
    const UnreadableDirectories unreadable(EIO, entries().size() + 1);
    start();
    expectTakenIn(entries().size());
}

TEST_F(StartUp, GivesEverythingBackWhenItIsGivenUp) {
    put("a", "first");
    put("b", "second", ".secondary_trusted_keys");
    certificate("first"); // made, and not counted below
    start();
    stop();
    loop = nullptr;
    const auto descriptors = openDescriptors();
    for (rlim_t keyrings = 1; keyrings <= 4; ++keyrings) {
        coll->keyringDelAll();
        const auto entities = alive();
        {
            const FewDescriptors few(keyrings * descriptorsOfAKeyring);
            EXPECT_EQ(causeOfFailure(), EMFILE) << keyrings;
        }
        EXPECT_EQ(openDescriptors(), descriptors) << keyrings;
        EXPECT_EQ(keys.openQueues(), 0U);
        EXPECT_EQ(coll->refCount(), 1U);
        EXPECT_EQ(coll->keyringCount(), keyrings) << "what was found stays with its owner";
        coll->keyringDelAll();
        EXPECT_EQ(alive(), entities) << keyrings;
        EXPECT_EQ(traces(1), TraceLines{});
    }
}

TEST_F(StartUp, ClosesNothingThatItHasNotOpenedWhenItIsGivenUp) {
    put("a", "first");
    calls.failNext("inotify_init1", EMFILE);
    const UnreadableDirectories unreadable(EIO);
    EXPECT_EQ(causeOfFailure(), EIO);
    EXPECT_EQ(std::ranges::count(calls.callsOf({"close"}), "close 0"), 0);
}

TEST_F(StartUp, CanBeTriedAgainAfterItWasGivenUp) {
    put("a", "first");
    {
        const UnreadableDirectories unreadable(EIO);
        EXPECT_EQ(causeOfFailure(), EIO);
    }
    start();
    EXPECT_EQ(sm->watcherInfos().size(), 4U);
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{described("first")});
}

TEST_F(StartUp, EndsWithNothingLeftAfterTheShutdown) {
    put("a", "first");
    loop = nullptr;
    coll = nullptr;
    const auto descriptors = openDescriptors();
    const auto entities = alive();
    {
        coll = Orvo::makeNode<IntegrityKeyringColl>();
        start();
        EXPECT_GT(openDescriptors().size(), descriptors.size() + 4 * descriptorsOfAKeyring)
            << "and the event loop's own";
        loop = Zell::ActivityFacility::activityManager();
        dispatch();
        loop = nullptr;
        EXPECT_EQ(keyColl()->key().size(), 1U);
        stop();
        coll = nullptr;
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(alive(), entities);
    EXPECT_EQ(keys.openQueues(), 0U);
}

} // namespace

} // namespace Vestrel::Tests
