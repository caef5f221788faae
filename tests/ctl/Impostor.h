// SPDX-License-Identifier: Apache-2.0
// Something else in the agent's place.
#pragma once

#include "platform/zell/OwnedFd.h"
#include "survey/AgentSocket.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

// Answers each line of its clients, one after the other, with the next of the texts and from then
// on with the last; an empty one ends the connection.
class Impostor {
public:
    explicit Impostor(std::vector<std::string> answers) : answers_(std::move(answers)) {
        listens(socket_.get());
        thread_ = std::thread([this] { serve(); });
    }

    ~Impostor() {
        shutdown(socket_.get(), SHUT_RDWR); // wakes accept()
        thread_.join();
    }

    Impostor(const Impostor&) = delete;
    Impostor& operator=(const Impostor&) = delete;

    // Takes the agent's place.
    static void listens(int socket) {
        std::filesystem::create_directories(agentSocketDirectory);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string(agentSocket).copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(socket, 1), 0);
    }

private:
    void serve() {
        for (;;) {
            const Zell::OwnedFd client(accept(socket_.get(), nullptr, nullptr));
            if (client.get() == -1) {
                return;
            }
            converse(client.get());
        }
    }

    void converse(int client) {
        std::array<char, 4096> request{};
        while (recv(client, request.data(), request.size(), 0) > 0) {
            const std::string& answer = answers_[std::min(next_, answers_.size() - 1)];
            ++next_;
            if (answer.empty()) {
                return;
            }
            ::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
        }
    }

    std::vector<std::string> answers_;
    std::size_t next_ = 0;
    Zell::OwnedFd socket_{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::thread thread_;
};

} // namespace Vestrel::Tests
