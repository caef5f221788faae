// SPDX-License-Identifier: Apache-2.0
// Runs vestrel-agent as a process of its own, the way a service manager does.
#pragma once

#include "platform/zell/OwnedFd.h"
#include "tests/kernel/cases/Host.h"

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

/// Traces at level 5 and log messages go to a file that is read here: a pipe could fill up and hold
/// the agent. The program is the environment's VESTREL_AGENT, or else the one built with the tests.
class AgentProcess final : public Host {
public:
    AgentProcess();
    /// Kills what still runs.
    ~AgentProcess() override;

    /// Throws std::runtime_error when the agent ends or does not become ready in time.
    void start() override;
    /// SIGTERM, and the exit status must be 0.
    void stop() override;
    void step() override;
    const std::vector<std::string>& traces() override;
    const std::vector<std::string>& messages() override;

    /// The agent's own words on failed loads, which are not among messages().
    const std::vector<std::string>& explanations();

    /// More arguments for the next start.
    void argumentsAre(std::vector<std::string> arguments) { arguments_ = std::move(arguments); }

    bool isRunning() const { return pid_ > 0; }

    pid_t pid() const { return pid_; }

    void signal(int number) const;
    /// The wait status of the agent, once it has ended. Throws when it does not end in time.
    int ended();
    /// Waits until the agent has told as often as that, in this run, that it is ready.
    void waitReady(std::size_t times);

    /// What the agent told the service manager in this run, such as "READY=1".
    const std::vector<std::string>& notifications() const { return notifications_; }

    /// Everything that the agent wrote to stderr in this run.
    std::string output() const;

private:
    void spawn();
    bool hasEnded(int& status);
    std::size_t timesReady() const;
    void notificationsRead();
    void linesRead();
    void lineRead(const std::string& line);

    std::string directory_;
    std::vector<std::string> arguments_;
    Zell::OwnedFd notifySocket_;
    pid_t pid_ = 0;
    std::size_t offset_ = 0; // what of the file was read
    std::vector<std::string> notifications_;
    std::vector<std::string> traces_;
    std::vector<std::string> messages_;
    std::vector<std::string> explanations_;
};

} // namespace Vestrel::Tests
