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

} // namespace

Queue::Queue() : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, IntegritySyslogSm::socketPath, sizeof(address.sun_path) - 1);
    const int room = 16 << 20;
    demand(socket_.get() != -1, "socket");
    demand(setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) == 0,
           "SO_SNDBUFFORCE");
    demand(connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
           "connect");
}

std::size_t Queue::fill(const std::vector<std::string_view>& lines, std::size_t most) {
    std::size_t sent = 0;
    while (sent != most) {
        const std::string_view line = lines[sent % lines.size()];
        if (send(socket_.get(), line.data(), line.size(), 0) == -1) {
            demand(errno == EAGAIN, "send");
            break;
        }
        ++sent;
    }
    return sent;
}

} // namespace Vestrel::Bench
