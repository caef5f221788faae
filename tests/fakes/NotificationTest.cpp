// SPDX-License-Identifier: Apache-2.0
// Checks the notifications of the key service model and the behaviour of its queues.
#include "tests/fakes/KeyService.h"
#include "tests/fakes/Probe.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <cstring>

namespace Vestrel::Tests {
namespace {

constexpr int notificationPipe = O_EXCL;

using Words = std::vector<std::uint32_t>;

/// The words that one read of 16 bytes gives; a single word holding errno when it fails.
Words readRecord(int descriptor, std::size_t size = 16) {
    Words words(4);
    const ssize_t bytes = Probe::read(descriptor, words.data(), size);
    if (bytes == -1) {
        return {static_cast<std::uint32_t>(errno)};
    }
    words.resize(static_cast<std::size_t>(bytes) / sizeof words[0]);
    return words;
}

bool isReadable(int descriptor) {
    pollfd watched{descriptor, POLLIN, 0};
    return ::poll(&watched, 1, 0) == 1 && (watched.revents & POLLIN) != 0;
}

class Notification : public testing::Test {
protected:
    void SetUp() override {
        ring_ = keys_.keyring(".ima");
        ASSERT_EQ(Probe::pipe2(ends_, notificationPipe | O_NONBLOCK), 0);
    }

    void TearDown() override {
        for (const int end : ends_) {
            if (end != -1) {
                Probe::close(end);
            }
        }
        EXPECT_EQ(keys_.openQueues(), 0U);
    }

    void watch(unsigned long size = 256, int id = 3) {
        ASSERT_EQ(Probe::setQueueSize(ends_[1], size), 0);
        ASSERT_EQ(Probe::watchKey(ring_, ends_[1], id), 0);
    }

    void closeEnd(std::size_t end) {
        ASSERT_EQ(Probe::close(ends_[end]), 0);
        ends_[end] = -1;
    }

    Words recordOf(std::uint32_t subtype, key_serial_t aux, std::uint32_t id = 3) const {
        return {1 | subtype << 24, 16 | id << 8, static_cast<std::uint32_t>(ring_),
                static_cast<std::uint32_t>(aux)};
    }

    KeyService keys_;
    key_serial_t ring_ = 0;
    std::array<int, 2> ends_{-1, -1};
    const Words again_{EAGAIN};
};

TEST_F(Notification, SaysOneLinkedForEachAddedKeyEvenWhenItDisplaces) {
    watch();
    const auto first = Probe::addKey("one", ring_);
    const auto second = Probe::addKey("one", ring_);
    EXPECT_EQ(readRecord(ends_[0]), recordOf(2, first));
    EXPECT_EQ(readRecord(ends_[0]), recordOf(2, second));
    EXPECT_EQ(readRecord(ends_[0]), again_);
}

TEST_F(Notification, SaysUnlinkedForAnUnlinkedKey) {
    const auto key = keys_.addKey(".ima", "one");
    watch(256, 255);
    ASSERT_EQ(Probe::unlinkKey(key, ring_), 0);
    EXPECT_EQ(readRecord(ends_[0]), recordOf(3, key, 255));
    EXPECT_EQ(readRecord(ends_[0]), again_);
}

TEST_F(Notification, NamesTheDisplacedSerialWhenItTakesItsSuccessorOut) {
    const auto displaced = keys_.addKey(".ima", "one");
    keys_.addKey(".ima", "one");
    watch();
    ASSERT_EQ(Probe::unlinkKey(displaced, ring_), 0);
    EXPECT_EQ(readRecord(ends_[0]), recordOf(3, displaced));
    EXPECT_EQ(readRecord(ends_[0]), again_);
}

TEST_F(Notification, SaysNothingForARefusedKeyOrADyingMember) {
    const auto revoked = keys_.addKey(".ima", "one");
    const auto invalid = keys_.addKey(".ima", "two");
    watch();
    keys_.judgeWith([](auto) { return EBADMSG; });
    EXPECT_EQ(Probe::addKey("three", ring_), -1);
    keys_.revoke(revoked);
    keys_.invalidate(invalid);
    keys_.collectGarbage();
    EXPECT_EQ(readRecord(ends_[0]), again_);
    EXPECT_TRUE(keys_.keysOf(".ima").empty());
}

TEST_F(Notification, TellsWhatBecomesOfTheKeyringItself) {
    keys_.addKey(".ima", "one");
    watch();
    keys_.clear(".ima");
    keys_.setPermissions(ring_, readOnlyKeyring);
    keys_.invalidate(ring_);
    keys_.revoke(ring_);
    EXPECT_EQ(readRecord(ends_[0]), recordOf(4, 0));
    EXPECT_EQ(readRecord(ends_[0]), recordOf(7, 0));
    EXPECT_EQ(readRecord(ends_[0]), recordOf(6, 0));
    EXPECT_EQ(readRecord(ends_[0]), recordOf(5, 0));
    EXPECT_EQ(readRecord(ends_[0]), again_);
}

TEST_F(Notification, EndsTheWatchWithTheKeyring) {
    watch();
    keys_.removeKeyring(".ima");
    EXPECT_EQ(readRecord(ends_[0]), (Words{0, 16 | 3 << 8, static_cast<std::uint32_t>(ring_), 0}));
    EXPECT_EQ(readRecord(ends_[0]), again_);
}

TEST_F(Notification, RefusesWatchesAsTheKernelDoes) {
    watch();
    const auto hidden = keys_.keyring(".hidden", 0);
    EXPECT_EQ(Probe::watchKey(ring_, ends_[1], 4), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(Probe::watchKey(hidden, ends_[1], 4), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(Probe::watchKey(hidden + 1, ends_[1], 4), -1);
    EXPECT_EQ(errno, ENOKEY);
    EXPECT_EQ(keys_.watchIdsOf(".ima"), std::vector<int>{3});
}

TEST_F(Notification, TakesASizeOnceAndFrom1To512) {
    for (const unsigned long size : {0UL, 513UL}) {
        EXPECT_EQ(Probe::setQueueSize(ends_[1], size), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    ASSERT_EQ(Probe::setQueueSize(ends_[1], 1), 0);
    EXPECT_EQ(Probe::setQueueSize(ends_[1], 1), -1);
    EXPECT_EQ(errno, EBUSY);
}

TEST_F(Notification, MakesTheReadEndReadableForPoll) {
    watch();
    EXPECT_FALSE(isReadable(ends_[0]));
    keys_.addKey(".ima", "one");
    EXPECT_TRUE(isReadable(ends_[0]));
    readRecord(ends_[0]);
    EXPECT_FALSE(isReadable(ends_[0]));
}

TEST_F(Notification, ReportsALossAfterTheQueuedRecordsAndHidesItFromPoll) {
    watch(256);
    for (int count = 0; count < 258; ++count) {
        keys_.addKey(".ima", std::to_string(count));
    }
    for (int count = 0; count < 256; ++count) {
        ASSERT_EQ(readRecord(ends_[0]).size(), 4U) << count;
    }
    EXPECT_FALSE(isReadable(ends_[0]));
    EXPECT_EQ(readRecord(ends_[0]), (Words{1U << 24, 8}));
    EXPECT_EQ(readRecord(ends_[0]), again_);
}

TEST_F(Notification, ReportsALossWhereItHappenedAmongLaterRecords) {
    watch(32);
    for (int count = 0; count < 33; ++count) {
        keys_.addKey(".ima", std::to_string(count));
    }
    ASSERT_EQ(readRecord(ends_[0]).size(), 4U);
    const auto later = keys_.addKey(".ima", "later");
    for (int count = 0; count < 31; ++count) {
        ASSERT_EQ(readRecord(ends_[0]).size(), 4U) << count;
    }
    EXPECT_EQ(readRecord(ends_[0]), (Words{1U << 24, 8}));
    EXPECT_EQ(readRecord(ends_[0]), recordOf(2, later));
    EXPECT_EQ(readRecord(ends_[0]), again_);
}

TEST_F(Notification, GivesRoomInWholePagesOf32) {
    watch(1);
    for (int count = 0; count < 32; ++count) {
        keys_.addKey(".ima", std::to_string(count));
    }
    for (int count = 0; count < 32; ++count) {
        ASSERT_EQ(readRecord(ends_[0]).size(), 4U) << count;
    }
    EXPECT_EQ(readRecord(ends_[0]), again_);
}

TEST_F(Notification, NeverCutsARecord) {
    watch();
    const auto key = keys_.addKey(".ima", "one");
    EXPECT_EQ(readRecord(ends_[0], 8), Words{ENOBUFS});
    EXPECT_EQ(readRecord(ends_[0]), recordOf(2, key));
}

TEST_F(Notification, PassesHostileRecordsOnAsTheyAre) {
    watch();
    const std::vector<std::uint8_t> shortRecord{1, 0, 0, 2, 4, 0, 0, 0};
    keys_.post(".ima", shortRecord);
    keys_.post(".ima", NotificationRecord{0xffffffff, 24, 1, 2});
    EXPECT_EQ(readRecord(ends_[0]), (Words{0x02000001, 4}));
    EXPECT_EQ(readRecord(ends_[0]), (Words{0xffffffff, 24, 1, 2}));
}

TEST_F(Notification, EndsWithTheWriterAfterWhatWasQueued) {
    watch();
    const auto key = keys_.addKey(".ima", "one");
    closeEnd(1);
    EXPECT_EQ(readRecord(ends_[0]), recordOf(2, key));
    EXPECT_EQ(readRecord(ends_[0]), Words{});
    pollfd watched{ends_[0], POLLIN, 0};
    EXPECT_EQ(::poll(&watched, 1, 0), 1);
    EXPECT_EQ(keys_.openQueues(), 1U);
}

TEST_F(Notification, SurvivesAClosedReader) {
    watch();
    closeEnd(0);
    keys_.addKey(".ima", "one");
    EXPECT_EQ(keys_.watchIdsOf(".ima"), std::vector<int>{3});
    closeEnd(1);
    EXPECT_TRUE(keys_.watchIdsOf(".ima").empty());
    keys_.addKey(".ima", "two");
}

TEST_F(Notification, OpensItsPipeWithTheFlagsAskedForOnly) {
    std::array<int, 2> plain{};
    ASSERT_EQ(Probe::pipe2(plain, notificationPipe), 0);
    for (const int end : plain) {
        EXPECT_EQ(::fcntl(end, F_GETFL) & O_NONBLOCK, 0);
        EXPECT_EQ(::fcntl(end, F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(Probe::close(end), 0);
    }
    ASSERT_EQ(Probe::pipe2(plain, notificationPipe | O_CLOEXEC), 0);
    for (const int end : plain) {
        EXPECT_EQ(::fcntl(end, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(Probe::close(end), 0);
    }
}

} // namespace
} // namespace Vestrel::Tests
