// SPDX-License-Identifier: Apache-2.0
// Asks the running agent.
#pragma once

#include "ctl/Output.h"
#include "platform/zell/OwnedFd.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Vestrel {

// Nobody serves the agent's socket; what() says why.
class NoAgent : public std::runtime_error {
public:
    using runtime_error::runtime_error;
};

// This user may not ask: whether there is an agent cannot be known.
class AgentOutOfReach : public std::runtime_error {
public:
    using runtime_error::runtime_error;
};

class AgentClient {
public:
    static constexpr std::chrono::seconds longPatience{10};

    // Connects. Throws NoAgent or AgentOutOfReach.
    explicit AgentClient(std::chrono::seconds patience = longPatience);

    // The parameters of the answer. Throws std::runtime_error when the agent does not answer in
    // that time, ends the connection, or answers with an error.
    Json ask(std::string_view method, const Json& parameters = Json::object());

private:
    void send(std::string_view bytes) const;
    std::string line();
    std::string cause() const;

    std::chrono::seconds patience_;
    Zell::OwnedFd socket_;
    std::string received_;
};

} // namespace Vestrel
