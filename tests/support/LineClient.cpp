// SPDX-License-Identifier: Apache-2.0
// Connecting, sending and receiving without blocking.
#include "tests/support/LineClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Vestrel::Tests {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds longest{30};

void require(bool isDone, const char* step) {
    if (!isDone) {
        std::perror(step);
        std::abort();
    }
}

} // namespace

void LineClient::pause() {
    poll(nullptr, 0, 2);
}

LineClient::LineClient(const std::string& path, std::function<void()> step)
    : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)),
      step_(std::move(step)) {
    require(static_cast<bool>(socket_), "socket");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    require(path.size() < sizeof address.sun_path, path.c_str());
    path.copy(address.sun_path, path.size());
    const auto end = Clock::now() + longest;
    do { // a full backlog is no refusal
        isConnected_ = connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address),
                               sizeof address) == 0;
        if (isConnected_ || errno != EAGAIN) {
            return;
        }
        step_();
    } while (Clock::now() < end);
}

std::size_t LineClient::sendSome(std::string_view bytes) const {
    const ssize_t size = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return size == -1 ? 0 : static_cast<std::size_t>(size);
}

bool LineClient::send(std::string_view bytes) {
    for (const auto end = Clock::now() + longest; !bytes.empty() && Clock::now() < end;) {
        errno = 0;
        bytes.remove_prefix(sendSome(bytes));
        if (errno == EPIPE || errno == ECONNRESET) {
            return false;
        }
        step_();
    }
    return bytes.empty();
}

void LineClient::endOfRequests() const {
    shutdown(socket_.get(), SHUT_WR);
}

bool LineClient::receive() {
    std::array<char, 65536> buffer{};
    const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), 0);
    if (size == -1) {
        return errno == EAGAIN;
    }
    received_.append(buffer.data(), static_cast<std::size_t>(size));
    return size != 0;
}

std::string LineClient::line() {
    for (const auto end = Clock::now() + longest; Clock::now() < end;) {
        if (const std::size_t size = received_.find('\n'); size != std::string::npos) {
            std::string line = received_.substr(0, size);
            received_.erase(0, size + 1);
            return line;
        }
        step_();
        if (!receive() && received_.find('\n') == std::string::npos) {
            return {};
        }
    }
    return {};
}

std::string LineClient::ask(const std::string& request) {
    return send(request + "\n") ? line() : std::string();
}

bool LineClient::isClosed() {
    for (const auto end = Clock::now() + longest; Clock::now() < end;) {
        step_();
        if (!receive()) {
            return true;
        }
        received_.clear();
    }
    return false;
}

} // namespace Vestrel::Tests
