// SPDX-License-Identifier: Apache-2.0
// Runs the agent as a process of its own, which shares the private directories of the test.
#pragma once

#include "platform/zell/OwnedFd.h"
#include "tests/support/TempDir.h"

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

struct AgentSetup {
    std::vector<std::string> arguments{};
    std::vector<std::pair<std::string, std::string>> environment{};
    mode_t umask = 022;
    std::string out{}; // instead of the file that out() reads
    bool hasInput = true;
};

// Started at construction, killed at destruction if it has not ended. Steps that the system refuses
// abort the process.
class AgentProcess {
public:
    explicit AgentProcess(const AgentSetup& setup);
    ~AgentProcess();
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;

    pid_t pid() const { return pid_; }

    void signal(int number) const;

    // Waits for the end. The exit status, or the negative number of the signal that ended it.
    int wait();

    // What it has written so far.
    std::string out() const { return directory_.read("out"); }

    std::string err() const { return directory_.read("err"); }

    std::vector<std::string> errLines() const;

    // Waits until this line stands on stderr; false when it does not come.
    bool errHas(const std::string& line) const;

    // The next message to the service manager; a test failure when none comes.
    std::string notification() const;

private:
    [[noreturn]] void become(const AgentSetup& setup) const;

    TempDir directory_;
    Zell::OwnedFd notifySocket_;
    pid_t pid_ = 0;
};

} // namespace Vestrel::Tests
