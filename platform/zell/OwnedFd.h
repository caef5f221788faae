// SPDX-License-Identifier: Apache-2.0
// The one owner of a file descriptor: moves, never copies, and closes exactly once.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Zell {

// Holds one descriptor, or none (any negative number). Closing keeps errno, so that an owner may go
// out of scope between a failed call and the reading of its cause. A close is never retried: the
// number is free after the first one, whatever it returned, and may be someone else's by then.
class OwnedFd {
public:
    OwnedFd() noexcept = default;

    explicit OwnedFd(int fd) noexcept : fd_(fd) {}

    OwnedFd(OwnedFd&& other) noexcept : fd_(other.release()) {}

    OwnedFd& operator=(OwnedFd&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }

    OwnedFd(const OwnedFd&) = delete;
    OwnedFd& operator=(const OwnedFd&) = delete;

    ~OwnedFd() { reset(); }

    int get() const noexcept { return fd_; }

    explicit operator bool() const noexcept { return fd_ >= 0; }

    // Gives the descriptor up without closing it.
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

    // Closes what is held and takes over `fd`.
    void reset(int fd = -1) noexcept {
        const int old = std::exchange(fd_, fd);
        if (old >= 0) {
            const int savedErrno = errno;
            ::close(old);
            errno = savedErrno;
        }
    }

private:
    int fd_ = -1;
};

} // namespace Zell
