// SPDX-License-Identifier: Apache-2.0
// Failures that the host itself gives: descriptors that are out, paths that are not what they
// should be, queues that are full.
#include "tests/faults/FaultWorld.h"
#include "tests/support/FewDescriptors.h"

#include <cerrno>
#include <fstream>

namespace Vestrel::Tests {

namespace {

class HostLimits : public FaultWorld {
protected:
    // Directories that are missing need no descriptor, so that a start-up goes on to its end.
    void populateWithoutDirectories() {
        populate();
        for (const std::string& name : keyringNames()) {
            std::filesystem::remove_all(directory(name));
        }
        clear();
    }

    void handle() {
        sm->handleInotify(".ima");
        sm->handleKeyringWatch(".ima");
    }

    // The turn of the start's own look-up of the keyring behind the first `count`. Those of the
    // loader are not made, where the keyring has nothing to load, or its files cannot be read.
    static std::size_t lookUpsBefore(std::size_t count) {
        std::size_t loads = 0;
        for (std::size_t i = 0; i + 1 < count; ++i) {
            loads += isWritable(keyringNames()[i]) ? 1U : 0U;
        }
        return count + loads + 1;
    }
};

TEST_F(HostLimits, OfDescriptorsCostTheWatchesThatTheyAreMissingFor) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's check of object types needs a descriptor of its own";
#endif
    const std::string inotify =
        std::string("1 createInotifyWatch: inotify_init1: ") + std::strerror(EMFILE);
    const std::string missing =
        std::string("1 createInotifyWatch: inotify_add_watch: ") + std::strerror(ENOENT);
    const std::string pipe = std::string("1 createKeyringWatch: pipe2: ") + std::strerror(EMFILE);
    for (rlim_t count = 0; count <= 9; ++count) {
        SCOPED_TRACE(std::to_string(count) + " descriptors");
        populateWithoutDirectories();
        {
            const FewDescriptors few(count);
            start(true);
            // An inotify instance is given back at once here, so each keyring keeps the two ends of
            // its queue while they last.
            TraceLines expected;
            rlim_t left = count;
            for (std::size_t i = 0; i < keyringNames().size(); ++i) {
                expected.push_back(left >= 1 ? missing : inotify);
                if (left >= 2) {
                    left -= 2;
                } else {
                    expected.push_back(pipe);
                }
            }
            TraceLines lines = traces(1);
            std::erase_if(lines, [](const std::string& line) {
                return line.find("watchIs") != std::string::npos; // the loop's own descriptors
            });
            EXPECT_EQ(lines, expected);
            EXPECT_EQ(sm->watcherInfos().size(), keyringNames().size());
            EXPECT_EQ(sm->keyringWatchFileDescriptors().size(), std::min<rlim_t>(count / 2, 4));
            EXPECT_TRUE(sm->inotifyDescriptors().empty());
        }
        endWithNothingLeft();
    }
}

// An inotify instance and a pipe.
constexpr rlim_t descriptorsOfAKeyring = 3;

// One descriptor behind those of the keyrings is enough to walk the last one's directory, but not
// to read what is in it.
TEST_F(HostLimits, OfDescriptorsAtTheStartKeepTheCertificatesOutInSilence) {
    startAnew();
    const Picture clean = picture();
    endWithNothingLeft();
    for (std::size_t count = 1; count <= keyringNames().size(); ++count) {
        SCOPED_TRACE(std::to_string(count) + " keyrings");
        populate();
        loop = Zell::ActivityFacility::activityManager(); // has its own descriptors already
        const std::string& last = keyringNames()[count - 1];
        TraceLines missing;
        Picture expected = clean;
        for (std::size_t i = count; i < keyringNames().size(); ++i) {
            const std::string& name = keyringNames()[i];
            keys.failNth("find_key_by_type_and_desc", lookUpsBefore(count) + i - count, ENOKEY);
            missing.push_back("1 createWatcher: find_key_by_type_and_desc: " +
                              std::string(std::strerror(ENOKEY)) + ", keyring " + name);
            expected[name] = {};
            expected[name].inKernel = {described(fileless(name)), described(present(name))};
        }
        expected[last].files.clear();
        expected[last].inKernel.erase(described(FaultWorld::missing(last)));
        clear();
        {
            const FewDescriptors few(count * descriptorsOfAKeyring + 1);
            start(true);
        }
        EXPECT_EQ(picture(), expected);
        EXPECT_EQ(traces(1), missing);
        EXPECT_EQ(messages, Texts{});
        endWithNothingLeft();
    }
}

TEST_F(HostLimits, OfDescriptorsRefuseAFileAndTheRewrittenOneIsLoaded) {
    startAnew();
    put("first", "first");
    handle(); // whatever needs a descriptor once
    clear();
    Picture expected = picture();
    put("new", "new");
    {
        const FewDescriptors none(0);
        handle();
    }
    EXPECT_EQ(messages, Texts{failure(file("new"), ".ima", EMFILE)});
    EXPECT_NE(messages.at(0).find("Too many open files"), std::string::npos);
    EXPECT_EQ(traces(1), TraceLines{});
    EXPECT_EQ(picture(), expected);
    put("new", "new");
    handle();
    expected[".ima"].files[file("new")] = described("new");
    expected[".ima"].known.insert(described("new"));
    expected[".ima"].inKernel.insert(described("new"));
    EXPECT_EQ(picture(), expected);
    EXPECT_EQ(messages.size(), 1U) << "nothing more was refused";
    endWithNothingLeft();
}

// A rewritten file that is refused is what it was no longer.
TEST_F(HostLimits, OfDescriptorsRefuseARewrittenFileAndItsOldKeyGoes) {
    startAnew();
    put("first", "first");
    handle();
    clear();
    Picture expected = picture();
    put("first", "changed");
    {
        const FewDescriptors none(0);
        handle();
    }
    EXPECT_EQ(messages, Texts{failure(file("first"), ".ima", EMFILE)});
    EXPECT_EQ(traces(1),
              TraceLines{std::string("1 getKey: keyctl_describe_alloc: ") + std::strerror(ENOKEY)});
    expected[".ima"].files.erase(file("first"));
    expected[".ima"].known.erase(described("first"));
    expected[".ima"].inKernel.erase(described("first"));
    EXPECT_EQ(picture(), expected);
    endWithNothingLeft();
}

TEST_F(HostLimits, OfPathsAreTracedAndLeaveTheOtherDirectoriesFollowed) {
    populate();
    std::filesystem::remove_all(directory(".ima"));
    std::filesystem::remove_all(directory(".machine"));
    std::filesystem::create_symlink(directory(".machine"), directory(".machine"));
    clear();
    start(true);
    EXPECT_EQ(traces(1), (TraceLines{std::string("1 createInotifyWatch: inotify_add_watch: ") +
                                         std::strerror(ENOENT),
                                     std::string("1 createInotifyWatch: inotify_add_watch: ") +
                                         std::strerror(ELOOP)}));
    EXPECT_EQ(sm->inotifyDescriptors().size(), 2U);
    EXPECT_EQ(sm->keyringWatchFileDescriptors().size(), 4U);
    endWithNothingLeft();
    std::filesystem::remove(directory(".machine"));
}

std::size_t longestQueue() {
    std::size_t length = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> length;
    return length;
}

TEST_F(HostLimits, OfTheInotifyQueueLoseEventsAndNothingElse) {
    const std::size_t length = longestQueue();
    if (length == 0 || length > 100000) {
        GTEST_SKIP() << "a queue of " << length << " events is not filled here";
    }
    startAnew();
    loop = Zell::ActivityFacility::activityManager();
    dispatch();
    Zell::traceLevelIs(1);
    clear();
    const Picture before = picture();
    const std::string one = file("one.integrity-tmp");
    const std::string other = file("other.integrity-tmp");
    write(one, "");
    for (std::size_t i = 0; i < length; ++i) { // two events each
        ASSERT_EQ(rename((i % 2 == 0 ? one : other).c_str(), (i % 2 == 0 ? other : one).c_str()),
                  0);
    }
    put("lost", "lost");
    dispatch();
    EXPECT_EQ(picture(), before) << "what came behind the full queue is lost";
    EXPECT_EQ(traces(1), TraceLines{});
    put("kept", "kept");
    dispatch();
    EXPECT_TRUE(picture().at(".ima").inKernel.contains(described("kept")));
    EXPECT_FALSE(picture().at(".ima").inKernel.contains(described("lost")));
    endWithNothingLeft();
}

TEST_F(HostLimits, OfTheWatchQueueLoseNotificationsAndNothingElse) {
    startAnew();
    loop = Zell::ActivityFacility::activityManager();
    dispatch();
    clear();
    constexpr std::size_t slots = 256;
    for (std::size_t i = 0; i < slots + 1; ++i) {
        keys.addKey(".ima", "key " + std::to_string(i));
    }
    sm->handleKeyringWatch(".ima");
    EXPECT_EQ(traces(1), TraceLines{});
    EXPECT_EQ(picture().at(".ima").known.count("key 255"), 1U);
    EXPECT_EQ(picture().at(".ima").known.count("key 256"), 0U) << "lost";
    keys.addKey(".ima", "key 257");
    sm->handleKeyringWatch(".ima");
    EXPECT_EQ(picture().at(".ima").known.count("key 257"), 1U);
    endWithNothingLeft();
}

} // namespace

} // namespace Vestrel::Tests
