// SPDX-License-Identifier: Apache-2.0
// Checks that the models abort, and say why, on calls that no correct program makes.
#include "tests/fakes/KeyService.h"
#include "tests/fakes/Probe.h"
#include "tests/fakes/SystemCalls.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <cerrno>

namespace Vestrel::Tests {
namespace {

constexpr int notificationPipe = O_EXCL;

class MisuseDeathTest : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(MisuseDeathTest, CallsNeedAnInstalledKeyService) {
    std::array<int, 2> ends{};
    EXPECT_DEATH(Probe::findKeyring(".ima"), "find_key_by_type_and_desc was called, but no");
    EXPECT_DEATH(Probe::pipe2(ends, notificationPipe), "pipe2 O_NOTIFICATION_PIPE was called");
    EXPECT_DEATH(Probe::setQueueSize(0, 256), "IOC_WATCH_QUEUE_SET_SIZE was called, but no");
}

TEST_F(MisuseDeathTest, OnlyOneOfEachMayBeInstalled) {
    KeyService keys;
    SystemCalls calls;
    EXPECT_DEATH(KeyService{}, "KeyService: one is installed already");
    EXPECT_DEATH(SystemCalls{}, "SystemCalls: one is installed already");
}

TEST_F(MisuseDeathTest, NullPointersAreFatal) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    EXPECT_DEATH(Probe::findKeyring(nullptr), "find_key_by_type_and_desc was given a null");
    EXPECT_DEATH(Probe::addNothing(3, ima), "add_key was given a null pointer");
    EXPECT_DEATH(Probe::readAllocIntoNothing(ima), "keyctl_read_alloc was given a null");
}

TEST_F(MisuseDeathTest, TheValueOfAFailedLookUpIsNoSerial) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    EXPECT_DEATH(Probe::readAlloc(-1), "keyctl_read_alloc was given the serial -1");
    EXPECT_DEATH(Probe::unlinkKey(ima, -1), "keyctl_unlink was given the serial -1");
    EXPECT_DEATH(Probe::unlinkKey(-1, ima), "keyctl_unlink was given the serial -1");
    EXPECT_DEATH(Probe::watchKey(-1, 0, 1), "keyctl_watch_key was given the serial -1");
    EXPECT_DEATH(Probe::addKey("one", -1), "add_key was given the serial -1");
}

TEST_F(MisuseDeathTest, KeysAreUnlinkedFromKeyringsOnly) {
    KeyService keys;
    keys.keyring(".ima");
    const auto key = keys.addKey(".ima", "one");
    EXPECT_DEATH(Probe::unlinkKey(key, key), "which is not a keyring");
}

TEST_F(MisuseDeathTest, KeysAreAddedAsCertificatesWithoutADescription) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    EXPECT_DEATH(Probe::addKey("one", ima, "mine"), "add_key with a description");
    EXPECT_DEATH(Probe::addKey("one", ima, "", "user"), "add_key of the type user");
}

TEST_F(MisuseDeathTest, WatchesNeedASizedNotificationPipeAndASmallId) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    std::array<int, 2> ends{};
    ASSERT_EQ(Probe::pipe2(ends, notificationPipe), 0);
    EXPECT_DEATH(Probe::watchKey(ima, ends[1], 1), "before the queue's size is set");
    ASSERT_EQ(Probe::setQueueSize(ends[1], 256), 0);
    EXPECT_DEATH(Probe::watchKey(ima, ends[1], 256), "ids 0 to 255, not 256");
    EXPECT_DEATH(Probe::watchKey(ima, ends[0], 1), "not the write end of a notification pipe");
    EXPECT_DEATH(Probe::watchKey(ima, 0, 1), "not the write end of a notification pipe");
    EXPECT_DEATH(Probe::setQueueSize(0, 256), "which is not a notification pipe");
    EXPECT_EQ(Probe::close(ends[0]), 0);
    EXPECT_EQ(Probe::close(ends[1]), 0);
}

TEST_F(MisuseDeathTest, QueuesAreReadWithoutBlockingAndOneRecordAtATime) {
    KeyService keys;
    std::array<int, 2> ends{};
    ASSERT_EQ(Probe::pipe2(ends, notificationPipe), 0);
    std::array<char, 32> buffer{};
    EXPECT_DEATH(Probe::read(ends[0], buffer.data(), 16), "would never return");
    EXPECT_DEATH(Probe::read(ends[0], buffer.data(), 32), "read 16 bytes at a time");
    EXPECT_EQ(Probe::close(ends[0]), 0);
    EXPECT_EQ(Probe::close(ends[1]), 0);
}

TEST_F(MisuseDeathTest, WhatIsNotModelledNeverReachesTheHost) {
    KeyService keys;
    EXPECT_DEATH(Probe::linkKey(1, 2), "keyctl_link is not modelled");
}

TEST_F(MisuseDeathTest, TestsCannotPrescribeNonsense) {
    KeyService keys;
    SystemCalls calls;
    EXPECT_DEATH(keys.failNext("keyctl_unlnk", EIO), "keyctl_unlnk cannot be scripted");
    EXPECT_DEATH(calls.failNext("open", EIO), "open cannot be scripted");
    EXPECT_DEATH(calls.failNth("close", 0, EIO), "calls are counted from 1");
    EXPECT_DEATH(calls.failNext("close", 0), "positive errno");
    EXPECT_DEATH(keys.addKey(".ima", "one"), "there is no keyring .ima");
    keys.keyring(".ima");
    EXPECT_DEATH(keys.post(".ima", notificationRecord(1, 2, 1, 1, 1)), "nobody watches .ima");
}

} // namespace
} // namespace Vestrel::Tests
