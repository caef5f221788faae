// SPDX-License-Identifier: Apache-2.0
// What the kernel's watch queue says, and when: the ground of the notification handling and of the
// tests' model of it.
#include "tests/kernel/cases/WatchQueue.h"

#include "tests/kernel/cases/KernelTest.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>

namespace Vestrel::Tests {
namespace {

class WatchedKeyring : public KernelTest {
protected:
    void SetUp() override { ASSERT_EQ(queue_.watch(serial_), 0); }

    // Waits for that many records: the kernel posts some from its garbage collection.
    Records awaited(std::size_t count) const {
        Records records;
        for (const auto end = std::chrono::steady_clock::now() + deadline;
             records.size() < count && std::chrono::steady_clock::now() < end;) {
            poll(nullptr, 0, 3);
            std::ranges::copy(queue_.drain(), std::back_inserter(records));
        }
        return records;
    }

    // The record that ends the watch.
    Record removal() const {
        Record record = change(0, serial_);
        record.type = 0;
        return record;
    }

    const Keyring ring_ = Keyring::made("watched");
    const key_serial_t serial_ = ring_.serial();
    WatchQueue queue_;
};

TEST_F(WatchedKeyring, SaysLinkedAndUnlinked) {
    const key_serial_t key = ring_.addUser("one");
    ring_.unlink(key);
    EXPECT_EQ(queue_.drain(),
              (Records{change(Linked, serial_, key), change(Unlinked, serial_, key)}));
}

TEST_F(WatchedKeyring, SaysOneLinkedForADisplacementAndNoUnlinked) {
    const key_serial_t first = ring_.add(certificate("twin", 1));
    const key_serial_t second = ring_.add(certificate("twin", 2));
    EXPECT_NE(first, second);
    EXPECT_EQ(queue_.drain(),
              (Records{change(Linked, serial_, first), change(Linked, serial_, second)}));
    EXPECT_EQ(ring_.keys(), std::vector<key_serial_t>{second});
}

TEST_F(WatchedKeyring, SaysLinkedForAKeyThatIsLinkedAgain) {
    const key_serial_t key = ring_.addUser("one");
    ring_.link(key);
    EXPECT_EQ(queue_.drain(),
              (Records{change(Linked, serial_, key), change(Linked, serial_, key)}));
    EXPECT_EQ(ring_.keys(), std::vector<key_serial_t>{key});
}

TEST_F(WatchedKeyring, SaysOneClearedForAllKeys) {
    ring_.addUser("one");
    ring_.addUser("two");
    queue_.drain();
    ring_.clear();
    EXPECT_EQ(queue_.drain(), Records{change(Cleared, serial_)});
}

TEST_F(WatchedKeyring, SaysNothingOfARefusedKey) {
    EXPECT_EQ(ring_.tryAdd(bytesOf("no certificate")), -1);
    EXPECT_EQ(errno, EBADMSG);
    EXPECT_EQ(queue_.drain(), Records{});
}

TEST_F(WatchedKeyring, SaysNothingOfMembersThatDie) {
    const key_serial_t revoked = ring_.addUser("revoked");
    const key_serial_t invalid = ring_.addUser("invalid");
    const key_serial_t expired = ring_.addUser("expired");
    queue_.drain();
    ASSERT_EQ(keyctl_revoke(revoked), 0);
    ASSERT_EQ(keyctl_set_timeout(expired, 1), 0);
    ASSERT_EQ(keyctl_invalidate(invalid), 0);
    for (const auto end = std::chrono::steady_clock::now() + deadline;
         ring_.members().size() == 3 && std::chrono::steady_clock::now() < end;) {
        poll(nullptr, 0, 3);
    }
    EXPECT_LT(ring_.members().size(), 3U);
    EXPECT_EQ(queue_.drain(), Records{});
}

TEST_F(WatchedKeyring, SaysWhatBecomesOfTheKeyringItself) {
    ASSERT_EQ(keyctl_setperm(serial_, 0x3f3f0000), 0);
    ASSERT_EQ(keyctl_revoke(serial_), 0);
    EXPECT_EQ(queue_.drain(), (Records{change(SetAttr, serial_), change(Revoked, serial_)}));
}

TEST_F(WatchedKeyring, SaysInvalidatedAndThenThatTheWatchHasEnded) {
    ASSERT_EQ(keyctl_invalidate(serial_), 0);
    EXPECT_EQ(awaited(2), (Records{change(Invalidated, serial_), removal()}));
}

TEST_F(WatchedKeyring, EndsTheWatchWhenItIsDestroyed) {
    ASSERT_EQ(keyctl_unlink(serial_, KEY_SPEC_PROCESS_KEYRING), 0);
    EXPECT_EQ(awaited(1), Records{removal()});
    EXPECT_FALSE(queue_.isReadable());
}

TEST_F(WatchedKeyring, TakesIdsUpTo255) {
    const Keyring other = Keyring::made("other");
    EXPECT_EQ(queue_.watch(other.serial(), 256), EINVAL);
    EXPECT_EQ(queue_.watch(other.serial(), 255), 0);
    const key_serial_t key = other.addUser("one");
    Record expected = change(Linked, other.serial(), key);
    expected.info = 16 | 255U << 8U;
    EXPECT_EQ(queue_.drain(), Records{expected});
}

TEST_F(WatchedKeyring, IsWatchedOncePerQueue) {
    EXPECT_EQ(queue_.watch(serial_, 8), EBUSY);
    WatchQueue second;
    EXPECT_EQ(second.watch(serial_), 0);
    const key_serial_t key = ring_.addUser("one");
    EXPECT_EQ(queue_.drain(), Records{change(Linked, serial_, key)});
    EXPECT_EQ(second.drain(), Records{change(Linked, serial_, key)});
}

TEST_F(WatchedKeyring, IsNotWatchedWithoutTheRightToSeeIt) {
    const Keyring hidden = Keyring::made("hidden");
    ASSERT_EQ(keyctl_setperm(hidden.serial(), 0x3e3e0000), 0);
    EXPECT_EQ(queue_.watch(hidden.serial()), EACCES);
    EXPECT_EQ(queue_.watch(0x7fffffff), ENOKEY);
}

TEST_F(WatchedKeyring, LosesEverythingSilentlyWhenTheQueueHasNoSize) {
    const WatchQueue unsized(0);
    EXPECT_EQ(unsized.watch(serial_), 0);
    ring_.addUser("one");
    EXPECT_EQ(unsized.drain(), Records{});
}

TEST(WatchQueueSize, IsSetOnceFrom1To512) {
    const WatchQueue queue(0);
    EXPECT_EQ(queue.setSize(0), EINVAL);
    EXPECT_EQ(queue.setSize(513), EINVAL);
    EXPECT_EQ(queue.setSize(1), 0);
    EXPECT_EQ(queue.setSize(1), EBUSY);
}

class FullQueue : public KernelTest {
protected:
    void fill(const WatchQueue& queue, unsigned count) {
        ASSERT_EQ(queue.watch(ring_.serial()), 0);
        for (unsigned i = 0; i < count; ++i) {
            last_ = ring_.addUser(std::to_string(i));
        }
    }

    const Keyring ring_ = Keyring::made("watched");
    key_serial_t last_ = 0;
};

TEST_F(FullQueue, ReportsALossAfterItsRecordsInOneOf8Bytes) {
    const WatchQueue queue(256);
    fill(queue, 260);
    const Records records = queue.drain();
    ASSERT_EQ(records.size(), 257U);
    EXPECT_EQ(records[255].subtype, std::uint32_t{Linked});
    EXPECT_EQ(records[256], lossRecord());
}

TEST_F(FullQueue, HidesTheLossFromPoll) {
    const WatchQueue queue(32);
    fill(queue, 33);
    std::array<std::uint32_t, 4> words{};
    for (int i = 0; i < 32; ++i) {
        EXPECT_TRUE(queue.isReadable()) << i;
        ASSERT_EQ(queue.read(words.data(), sizeof words), 16) << i;
    }
    EXPECT_FALSE(queue.isReadable());
    EXPECT_EQ(queue.read(words.data(), sizeof words), 8);
    EXPECT_EQ(queue.read(words.data(), sizeof words), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(FullQueue, ReportsTheLossWhereItHappened) {
    const WatchQueue queue(32);
    fill(queue, 33);
    std::array<std::uint32_t, 4> words{};
    ASSERT_EQ(queue.read(words.data(), sizeof words), 16);
    const key_serial_t later = ring_.addUser("later");
    const Records records = queue.drain();
    ASSERT_EQ(records.size(), 33U);
    EXPECT_EQ(records[31], lossRecord());
    EXPECT_EQ(records[32], change(Linked, ring_.serial(), later));
}

TEST_F(FullQueue, HasRoomInWholePagesOf32) {
    const WatchQueue queue(1);
    fill(queue, 32);
    EXPECT_EQ(queue.drain().size(), 32U);
}

TEST_F(FullQueue, NeverCutsARecord) {
    const WatchQueue queue(32);
    fill(queue, 1);
    std::array<std::uint32_t, 4> words{};
    EXPECT_EQ(queue.read(words.data(), 8), -1);
    EXPECT_EQ(errno, ENOBUFS);
    EXPECT_EQ(queue.drain(), Records{change(Linked, ring_.serial(), last_)});
}

TEST_F(FullQueue, EndsWithItsWriterAfterWhatWasQueued) {
    WatchQueue queue(32);
    fill(queue, 1);
    queue.closeWriteEnd();
    std::array<std::uint32_t, 4> words{};
    EXPECT_EQ(queue.read(words.data(), sizeof words), 16);
    EXPECT_EQ(queue.read(words.data(), sizeof words), 0);
}

} // namespace
} // namespace Vestrel::Tests
