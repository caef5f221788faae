// SPDX-License-Identifier: Apache-2.0
// The sending end of the kernel message socket.
#include "bench/Queue.h"

#include "syslog/IntegritySyslogSm.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Vestrel::Bench {

namespace {

void demand(bool success, const char* step) {
    if (!success) {
        std::fprintf(stderr, "%s: %s (run as root)\n", step, std::strerror(errno));
        std::exit(1);
    }
}

Zell::OwnedFd connected(const char* path, int flags) {
    Zell::OwnedFd end(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | flags, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    demand(!!end, "socket");
    demand(connect(end.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
           "connect");
    return end;
}

} // namespace

Queue::Queue() : socket_(connected(IntegritySyslogSm::socketPath, SOCK_NONBLOCK)) {
    const int room = 16 << 20;
    demand(setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) == 0,
           "SO_SNDBUFFORCE");
}

std::size_t Queue::fill(const std::vector<std::string_view>& lines, std::size_t most) {
    std::size_t sent = 0;
    while (sent != most) {
        const std::string_view line = lines[sent % lines.size()];
        if (::send(socket_.get(), line.data(), line.size(), 0) == -1) {
            demand(errno == EAGAIN, "send");
            break;
        }
        ++sent;
    }
    return sent;
}

BlockingSender::BlockingSender(const char* path) : socket_(connected(path, 0)) {}

void BlockingSender::send(std::string_view line) {
    demand(::send(socket_.get(), line.data(), line.size(), 0) != -1, "send");
}

} // namespace Vestrel::Bench
