// SPDX-License-Identifier: Apache-2.0
// Models the reading and the filling of a kernel watch queue.
#include "tests/fakes/NotificationQueue.h"

#include "tests/fakes/Misuse.h"
#include "tests/fakes/RealCalls.h"

#include <fcntl.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <string>

namespace Vestrel::Tests {

namespace {

constexpr const char* who = "NotificationQueue";
constexpr int notificationPipe = O_EXCL; // the kernel gives this bit a second name for pipe2
constexpr unsigned notesPerPage = 32;
constexpr unsigned mostNotes = 512;
constexpr std::size_t mostRecordBytes = 128;
constexpr std::size_t slotBytes = 4096; // a packet takes one page of a pipe
constexpr std::uint32_t subtypeShift = 24;
constexpr std::uint32_t watchIdShift = 8;
constexpr std::uint32_t lossSubtype = 1;

ssize_t failed(int error) {
    errno = error;
    return -1;
}

} // namespace

NotificationRecord notificationRecord(unsigned type, unsigned subtype, unsigned watchId,
                                      std::uint32_t keyId, std::uint32_t aux) {
    const auto length = static_cast<std::uint32_t>(sizeof(NotificationRecord));
    return {type | subtype << subtypeShift, length | watchId << watchIdShift, keyId, aux};
}

std::shared_ptr<NotificationQueue> NotificationQueue::open(int flags) {
    constexpr int inherited = O_CLOEXEC | O_NONBLOCK;
    if ((flags & ~(inherited | O_DIRECT | notificationPipe)) != 0) {
        errno = EINVAL;
        return nullptr;
    }
    int ends[2] = {-1, -1};
    if (Real::pipe2(ends, (flags & inherited) | O_DIRECT) == -1) {
        return nullptr;
    }
    return std::shared_ptr<NotificationQueue>(new NotificationQueue(ends[0], ends[1]));
}

bool NotificationQueue::owns(int descriptor) const {
    return descriptor >= 0 && (descriptor == readEnd_ || descriptor == writeEnd_);
}

int NotificationQueue::setSize(unsigned long notes) {
    if (isSized()) {
        return EBUSY;
    }
    if (notes < 1 || notes > mostNotes) {
        return EINVAL;
    }
    const auto pages = (static_cast<unsigned>(notes) + notesPerPage - 1) / notesPerPage;
    reserveSlots(pages * notesPerPage);
    slots_ = pages * notesPerPage;
    return 0;
}

void NotificationQueue::reserveSlots(unsigned slots) const {
    const auto bytes = static_cast<int>(std::bit_ceil(slots) * slotBytes);
    if (::fcntl(writeEnd_, F_SETPIPE_SZ, bytes) < bytes) {
        misuse(who, std::string("this host gives no pipe of that size: ") + std::strerror(errno));
    }
}

void NotificationQueue::post(Bytes record) {
    if (record.empty() || record.size() > mostRecordBytes) {
        misuse(who, "a record has 1 to 128 bytes");
    }
    if (packets_.size() >= slots_) {
        if (!packets_.empty()) {
            packets_.back().isLossAfter = true;
        }
        return;
    }
    packets_.push_back({{record.begin(), record.end()}, sendReadiness(record), false});
}

bool NotificationQueue::sendReadiness(Bytes record) const {
    if (readEnd_ < 0 || writeEnd_ < 0) {
        return false; // nobody could be woken, and a write without a reader raises SIGPIPE
    }
    if (::write(writeEnd_, record.data(), record.size()) != static_cast<ssize_t>(record.size())) {
        misuse(who, std::string("cannot write into the pipe: ") + std::strerror(errno));
    }
    return true;
}

ssize_t NotificationQueue::read(void* buffer, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    if (size > sizeof(NotificationRecord)) {
        misuse(who, "the kernel joins records in a longer read: read 16 bytes at a time");
    }
    if (isLossPending_) {
        return readLoss(buffer, size);
    }
    return packets_.empty() ? readNothing() : readPacket(buffer, size);
}

ssize_t NotificationQueue::readLoss(void* buffer, std::size_t size) {
    constexpr std::uint32_t lossBytes = 8;
    const std::uint32_t loss[] = {lossSubtype << subtypeShift, lossBytes};
    static_assert(sizeof loss == lossBytes);
    if (size < lossBytes) {
        return failed(ENOBUFS);
    }
    std::memcpy(buffer, loss, lossBytes);
    isLossPending_ = false;
    return lossBytes;
}

ssize_t NotificationQueue::readPacket(void* buffer, std::size_t size) {
    const Packet packet = packets_.front();
    if (packet.bytes.size() > size) {
        return failed(ENOBUFS); // a record is never cut: it stays where it is
    }
    std::uint8_t consumed[mostRecordBytes];
    if (packet.isInPipe && Real::read(readEnd_, consumed, sizeof consumed) < 0) {
        misuse(who, "a record was taken from the pipe behind the model's back");
    }
    packets_.pop_front();
    isLossPending_ = packet.isLossAfter;
    std::memcpy(buffer, packet.bytes.data(), packet.bytes.size());
    return static_cast<ssize_t>(packet.bytes.size());
}

ssize_t NotificationQueue::readNothing() const {
    if (writeEnd_ < 0) {
        return 0;
    }
    if ((::fcntl(readEnd_, F_GETFL) & O_NONBLOCK) == 0) {
        misuse(who, "read of an empty queue whose read end is blocking would never return");
    }
    return failed(EAGAIN);
}

void NotificationQueue::noteClosed(int descriptor) {
    if (descriptor == readEnd_) {
        readEnd_ = -1;
    } else if (descriptor == writeEnd_) {
        writeEnd_ = -1;
    }
}

} // namespace Vestrel::Tests
