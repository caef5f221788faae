// SPDX-License-Identifier: Apache-2.0
// A kernel watch queue as a real packet pipe, with the queue's own size limit and loss marks.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

namespace Vestrel::Tests {

/// One record of the kernel's watch-queue interface, in the order of its words.
struct NotificationRecord {
    std::uint32_t typeAndSubtype;
    std::uint32_t info;
    std::uint32_t keyId;
    std::uint32_t aux;
};

/// The record of `type` and `subtype` whose length field says 16 and whose watch id is `watchId`.
NotificationRecord notificationRecord(unsigned type, unsigned subtype, unsigned watchId,
                                      std::uint32_t keyId, std::uint32_t aux);

/// The two descriptors belong to the code under test, which closes them; the model only follows
/// along. The pipe makes readiness real for poll and epoll; `read` gives the records and marks a
/// loss the way the kernel does: after the record that was the newest when one was lost.
class NotificationQueue {
public:
    using Bytes = std::span<const std::uint8_t>;

    /// pipe2 with O_NOTIFICATION_PIPE; null with errno set when the pipe cannot be made.
    static std::shared_ptr<NotificationQueue> open(int flags);

    int readEnd() const { return readEnd_; }

    int writeEnd() const { return writeEnd_; }

    bool owns(int descriptor) const;

    bool isSized() const { return slots_ != 0; }

    /// IOC_WATCH_QUEUE_SET_SIZE: 0 or the errno.
    int setSize(unsigned long notes);

    /// Queues one record, or marks the loss when every slot is taken.
    void post(Bytes record);

    /// read(2) on the read end: one record, the loss record, 0 after the writer, or -1 with errno.
    ssize_t read(void* buffer, std::size_t size);

    void noteClosed(int descriptor);

    bool isGone() const { return readEnd_ < 0 && writeEnd_ < 0; }

private:
    struct Packet {
        std::vector<std::uint8_t> bytes;
        bool isInPipe;
        bool isLossAfter;
    };

    NotificationQueue(int readEnd, int writeEnd) : readEnd_(readEnd), writeEnd_(writeEnd) {}

    void reserveSlots(unsigned slots) const;
    bool sendReadiness(Bytes record) const;
    ssize_t readLoss(void* buffer, std::size_t size);
    ssize_t readPacket(void* buffer, std::size_t size);
    ssize_t readNothing() const;

    int readEnd_;
    int writeEnd_;
    unsigned slots_ = 0;
    bool isLossPending_ = false;
    std::deque<Packet> packets_;
};

} // namespace Vestrel::Tests
