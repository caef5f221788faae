// SPDX-License-Identifier: Apache-2.0
// Makes, fills and reads a notification pipe.
#include "tests/kernel/cases/WatchQueue.h"

#include "keyring/WatchNotification.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace Vestrel::Tests {

namespace {

constexpr std::uint32_t wholeRecord = 16;
constexpr std::uint32_t headOfRecord = 8;

Record decoded(const std::array<std::uint32_t, 4>& words, std::size_t size) {
    return {size, words[0] & 0xffffffU, words[0] >> 24U, words[1], words[2], words[3]};
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Record& record) {
    return out << record.size << " bytes, type " << record.type << ", subtype " << record.subtype
               << ", info " << std::hex << record.info << std::dec << ", key id " << record.keyId
               << ", aux " << record.aux;
}

Record lossRecord() {
    return {headOfRecord, 0, 1, headOfRecord, 0, 0};
}

Record change(std::uint32_t subtype, key_serial_t keyring, key_serial_t key) {
    return {wholeRecord,
            1,
            subtype,
            wholeRecord | WatchQueue::watchId << 8U,
            static_cast<std::uint32_t>(keyring),
            static_cast<std::uint32_t>(key)};
}

WatchQueue::WatchQueue(unsigned long slots) {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), notificationPipeFlag | O_NONBLOCK | O_CLOEXEC) == -1) {
        throw std::runtime_error(std::string("notification pipe: ") + std::strerror(errno));
    }
    readEnd_.reset(ends[0]);
    writeEnd_.reset(ends[1]);
    if (slots != 0 && setSize(slots) != 0) {
        throw std::runtime_error("size of the notification pipe");
    }
}

int WatchQueue::setSize(unsigned long slots) const {
    return ioctl(writeEnd_.get(), setQueueSizeRequest, slots) == -1 ? errno : 0;
}

int WatchQueue::watch(key_serial_t keyring, unsigned id) const {
    return keyctl_watch_key(keyring, writeEnd_.get(), static_cast<int>(id)) == -1 ? errno : 0;
}

ssize_t WatchQueue::read(void* buffer, std::size_t size) const {
    return ::read(readEnd_.get(), buffer, size);
}

Records WatchQueue::drain() const {
    Records records;
    for (;;) {
        std::array<std::uint32_t, 4> words{};
        const ssize_t size = read(words.data(), sizeof words);
        if (size <= 0) {
            return records;
        }
        records.push_back(decoded(words, static_cast<std::size_t>(size)));
    }
}

bool WatchQueue::isReadable() const {
    pollfd watched{readEnd_.get(), POLLIN, 0};
    return poll(&watched, 1, 0) == 1 && (watched.revents & POLLIN) != 0;
}

} // namespace Vestrel::Tests
