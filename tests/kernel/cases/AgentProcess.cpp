// SPDX-License-Identifier: Apache-2.0
// Starts, watches and ends the agent.
#include "tests/kernel/cases/AgentProcess.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace Vestrel::Tests {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int stepMilliseconds = 3;
constexpr std::string_view traceHandle = "IntegrityKeyringSm ";
constexpr std::string_view explanationPrefix = "VESTREL_INTEGRITY_LOAD_KEY_EXPLANATION: ";
constexpr std::string_view messagePrefix = "VESTREL_";

[[noreturn]] void refused(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::string agentPath() {
    const char* const given = std::getenv("VESTREL_AGENT");
    return given != nullptr ? given : VESTREL_AGENT;
}

int boundSocket(const std::string& path) {
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ::unlink(path.c_str());
    if (socket == -1 ||
        bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
        refused(path);
    }
    return socket;
}

} // namespace

AgentProcess::AgentProcess() {
    std::string pattern = "/tmp/agent-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        refused(pattern);
    }
    directory_ = pattern;
}

AgentProcess::~AgentProcess() {
    if (isRunning()) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    std::error_code leftInTheGuest;
    std::filesystem::remove_all(directory_, leftInTheGuest);
}

void AgentProcess::start() {
    notifications_.clear();
    traces_.clear();
    messages_.clear();
    explanations_.clear();
    offset_ = 0;
    notifySocket_.reset(boundSocket(directory_ + "/notify"));
    spawn();
    waitReady(1);
}

void AgentProcess::spawn() {
    const std::string program = agentPath();
    const std::string output = directory_ + "/stderr";
    const std::string notify = "NOTIFY_SOCKET=" + directory_ + "/notify";
    std::vector<const char*> arguments{program.c_str(), "--trace", "5", "--log", "stderr"};
    for (const std::string& argument : arguments_) {
        arguments.push_back(argument.c_str());
    }
    arguments.push_back(nullptr);
    std::vector<const char*> environment{notify.c_str()};
    for (const char* const* variable = environ; *variable != nullptr; ++variable) {
        environment.push_back(*variable);
    }
    environment.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, output.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
    errno = posix_spawn(&pid_, program.c_str(), &actions, nullptr,
                        const_cast<char* const*>(arguments.data()),
                        const_cast<char* const*>(environment.data()));
    posix_spawn_file_actions_destroy(&actions);
    if (errno != 0) {
        pid_ = 0;
        refused(program);
    }
}

void AgentProcess::stop() {
    if (!isRunning()) {
        return;
    }
    signal(SIGTERM);
    const int status = ended();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "the agent ended with wait status " << status << ":\n"
        << output();
}

void AgentProcess::step() {
    poll(nullptr, 0, stepMilliseconds);
}

void AgentProcess::signal(int number) const {
    kill(pid_, number);
}

bool AgentProcess::hasEnded(int& status) {
    if (waitpid(pid_, &status, WNOHANG) != pid_) {
        return false;
    }
    pid_ = 0;
    return true;
}

int AgentProcess::ended() {
    int status = 0;
    for (const auto end = Clock::now() + deadline; !hasEnded(status); step()) {
        if (Clock::now() > end) {
            throw std::runtime_error("the agent does not end:\n" + output());
        }
    }
    notificationsRead();
    return status;
}

void AgentProcess::waitReady(std::size_t times) {
    const auto end = Clock::now() + deadline;
    while (timesReady() < times) {
        pollfd socket{notifySocket_.get(), POLLIN, 0};
        poll(&socket, 1, stepMilliseconds);
        notificationsRead();
        int status = 0;
        if (hasEnded(status)) {
            throw std::runtime_error("the agent ended with wait status " + std::to_string(status) +
                                     ":\n" + output());
        }
        if (Clock::now() > end) {
            throw std::runtime_error("the agent does not become ready:\n" + output());
        }
    }
}

std::size_t AgentProcess::timesReady() const {
    return static_cast<std::size_t>(std::ranges::count(notifications_, "READY=1"));
}

void AgentProcess::notificationsRead() {
    std::array<char, 4096> datagram{};
    for (;;) {
        const ssize_t size = recv(notifySocket_.get(), datagram.data(), datagram.size(), 0);
        if (size <= 0) {
            return;
        }
        std::istringstream lines(std::string(datagram.data(), static_cast<std::size_t>(size)));
        for (std::string line; std::getline(lines, line);) {
            notifications_.push_back(line);
        }
    }
}

const std::vector<std::string>& AgentProcess::traces() {
    linesRead();
    return traces_;
}

const std::vector<std::string>& AgentProcess::messages() {
    linesRead();
    return messages_;
}

const std::vector<std::string>& AgentProcess::explanations() {
    linesRead();
    return explanations_;
}

std::string AgentProcess::output() const {
    std::ostringstream text;
    text << std::ifstream(directory_ + "/stderr").rdbuf();
    return text.str();
}

void AgentProcess::linesRead() {
    std::ifstream file(directory_ + "/stderr");
    file.seekg(static_cast<std::streamoff>(offset_));
    for (std::string line; std::getline(file, line) && !file.eof();) {
        offset_ += line.size() + 1;
        lineRead(line);
    }
}

void AgentProcess::lineRead(const std::string& line) {
    if (line.starts_with(traceHandle)) {
        traces_.push_back(line.substr(traceHandle.size()));
    } else if (line.starts_with(explanationPrefix)) {
        explanations_.push_back(line.substr(explanationPrefix.size()));
    } else if (line.starts_with(messagePrefix)) {
        messages_.push_back(line);
    }
}

} // namespace Vestrel::Tests
