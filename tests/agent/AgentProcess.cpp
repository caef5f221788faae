// SPDX-License-Identifier: Apache-2.0
// Start, signals, output and end of the agent under test.
#include "tests/agent/AgentProcess.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace Vestrel::Tests {

namespace {

constexpr int longestWaitMilliseconds = 60000; // far beyond what any start takes

void require(bool isDone, const char* step) {
    if (!isDone) {
        std::perror(step);
        std::abort();
    }
}

Zell::OwnedFd datagramSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    require(path.size() < sizeof address.sun_path, "length of the socket's path");
    path.copy(address.sun_path, path.size());
    Zell::OwnedFd made(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    require(bind(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
            "bind");
    return made;
}

void outputTo(const std::string& path, int descriptor) {
    const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    require(file >= 0 && dup2(file, descriptor) == descriptor, path.c_str());
    close(file);
}

} // namespace

AgentProcess::AgentProcess(const AgentSetup& setup)
    : notifySocket_(datagramSocket(directory_.path("notify"))) {
    directory_.write("out", "");
    directory_.write("err", "");
    pid_ = fork();
    require(pid_ != -1, "fork");
    if (pid_ == 0) {
        become(setup);
    }
}

AgentProcess::~AgentProcess() {
    if (pid_ != 0) {
        kill(pid_, SIGKILL);
        wait();
    }
}

void AgentProcess::become(const AgentSetup& setup) const {
    outputTo(setup.out.empty() ? directory_.path("out") : setup.out, STDOUT_FILENO);
    outputTo(directory_.path("err"), STDERR_FILENO);
    if (!setup.hasInput) {
        close(STDIN_FILENO);
    }
    setenv("NOTIFY_SOCKET", directory_.path("notify").c_str(), 1);
    for (const auto& [name, value] : setup.environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    umask(setup.umask);
    std::vector<std::string> words{VESTREL_AGENT};
    words.insert(words.end(), setup.arguments.begin(), setup.arguments.end());
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execv(VESTREL_AGENT, arguments.data());
    std::perror(VESTREL_AGENT);
    _exit(127);
}

void AgentProcess::signal(int number) const {
    require(kill(pid_, number) == 0, "kill");
}

int AgentProcess::wait() {
    int status = 0;
    require(waitpid(pid_, &status, 0) == pid_, "waitpid");
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::vector<std::string> AgentProcess::errLines() const {
    std::vector<std::string> lines;
    std::istringstream text(err());
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

bool AgentProcess::errHas(const std::string& line) const {
    const Zell::OwnedFd changes(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    require(inotify_add_watch(changes.get(), directory_.path("err").c_str(), IN_MODIFY) >= 0,
            "inotify_add_watch");
    for (;;) {
        const auto lines = errLines();
        if (std::ranges::find(lines, line) != lines.end()) {
            return true;
        }
        pollfd query{changes.get(), POLLIN, 0};
        if (poll(&query, 1, longestWaitMilliseconds) != 1) {
            return false;
        }
        std::array<char, 4096> events{};
        require(read(changes.get(), events.data(), events.size()) > 0, "read");
    }
}

std::string AgentProcess::notification() const {
    pollfd query{notifySocket_.get(), POLLIN, 0};
    if (poll(&query, 1, longestWaitMilliseconds) != 1) {
        ADD_FAILURE() << "the agent says nothing; on stderr: " << err();
        return {};
    }
    std::array<char, 4096> buffer{};
    const ssize_t size = recv(notifySocket_.get(), buffer.data(), buffer.size(), 0);
    require(size >= 0, "recv");
    return {buffer.data(), static_cast<std::size_t>(size)};
}

} // namespace Vestrel::Tests
