// SPDX-License-Identifier: Apache-2.0
// One line to the agent's socket, one line back.
#include "ctl/AgentClient.h"

#include "ctl/AgentAnswer.h"
#include "survey/AgentSocket.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace Vestrel {

namespace {

constexpr std::size_t maxAnswer = std::size_t{16} * 1024 * 1024; // far beyond what an agent sends

[[noreturn]] void unconnected(int error, const std::string& cause) {
    if (error == EACCES || error == EPERM) {
        throw AgentOutOfReach(std::string("cannot ask the agent at ") + agentSocket + ": " + cause +
                              "; run as root");
    }
    throw NoAgent(std::string("no agent at ") + agentSocket + ": " + cause);
}

void patienceIs(int socket, std::chrono::seconds patience) {
    const timeval limit{patience.count(), 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

} // namespace

AgentClient::AgentClient(std::chrono::seconds patience)
    : patience_(patience), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, agentSocket, sizeof address.sun_path - 1);
    patienceIs(socket_.get(), patience_); // connecting waits, too
    if (connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
        const int error = errno;
        unconnected(error, cause());
    }
}

Json AgentClient::ask(std::string_view method, const Json& parameters) {
    Json request = Json::object();
    request["method"] = method;
    request["parameters"] = parameters;
    send(jsonText(std::move(request)) + "\n");
    return parametersOf(method, line());
}

void AgentClient::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t size = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (size == -1) {
            unanswered(cause());
        }
        bytes.remove_prefix(static_cast<std::size_t>(size));
    }
}

std::string AgentClient::line() {
    std::array<char, 65536> buffer; // NOLINT: filled by recv()
    while (received_.find('\n') == std::string::npos) {
        const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (size == -1) {
            unanswered(cause());
        }
        if (size == 0) {
            unanswered("it has ended the connection");
        }
        received_.append(buffer.data(), static_cast<std::size_t>(size));
        if (received_.size() > maxAnswer) {
            unanswered("it does not stop answering");
        }
    }
    std::string line = received_.substr(0, received_.find('\n'));
    received_.erase(0, line.size() + 1);
    return line;
}

std::string AgentClient::cause() const {
    if (errno != EAGAIN) {
        return std::strerror(errno);
    }
    const auto seconds = patience_.count();
    return "nothing came within " + std::to_string(seconds) +
           (seconds == 1 ? " second" : " seconds");
}

} // namespace Vestrel
