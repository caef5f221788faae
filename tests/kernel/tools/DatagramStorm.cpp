// SPDX-License-Identifier: Apache-2.0
// Sends datagrams to a Unix socket: one, or very many as fast as they are taken.
//
//   vestrel-datagram-storm SOCKET LINE
//   vestrel-datagram-storm SOCKET LINE OTHER COUNT    every second one is OTHER; the last is LINE
#include "platform/zell/OwnedFd.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

using Clock = std::chrono::steady_clock;

bool failed(const char* call) {
    std::fprintf(stderr, "vestrel-datagram-storm: %s: %s\n", call, std::strerror(errno));
    return false;
}

bool connectTo(int fd, std::string_view path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return failed("connect");
    }
    path.copy(address.sun_path, path.size());
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 ||
           failed("connect");
}

bool sendLine(int fd, std::string_view line) {
    return send(fd, line.data(), line.size(), 0) != -1 || failed("send");
}

// `count` is even, so that the last one is of the first kind.
bool sendMany(int fd, const std::array<std::string_view, 2>& lines, unsigned count) {
    const auto start = Clock::now();
    for (unsigned left = count; left != 0; --left) {
        if (!sendLine(fd, lines[(left - 1) % 2])) {
            return false;
        }
    }
    const std::chrono::duration<double> took = Clock::now() - start;
    std::printf("sent %u datagrams in %.2f s\n", count, took.count());
    return true;
}

bool evenNumber(std::string_view text, unsigned& number) {
    const auto end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && last == end && number % 2 == 0;
}

} // namespace

int main(int argc, char** argv) {
    unsigned count = 0;
    if (argc != 3 && (argc != 5 || !evenNumber(argv[4], count))) {
        std::fputs("usage: vestrel-datagram-storm SOCKET LINE [OTHER EVEN-COUNT]\n", stderr);
        return 2;
    }
    // Blocking on purpose: the receiver sets the pace.
    const Zell::OwnedFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        failed("socket");
        return 1;
    }
    const bool sent =
        connectTo(fd.get(), argv[1]) &&
        (argc == 3 ? sendLine(fd.get(), argv[2]) : sendMany(fd.get(), {argv[2], argv[3]}, count));
    return sent ? 0 : 1;
}
