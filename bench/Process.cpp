// SPDX-License-Identifier: Apache-2.0
// Children, and what /proc tells about them.
#include "bench/Process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace Vestrel::Bench {

namespace {

[[noreturn]] void become(const std::vector<std::string>& words, const std::string& errorFile) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int errors = open(errorFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    dup2(errors, STDERR_FILENO);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    execvp(arguments.front(), arguments.data());
    _exit(127);
}

std::string statusLine(pid_t process, const std::string& name) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name)) {
            return line.substr(name.size());
        }
    }
    return {};
}

} // namespace

Process::Process(const std::vector<std::string>& words, const std::string& errorFile)
    : process_(fork()) {
    if (process_ == -1) {
        std::perror("fork");
        std::exit(1);
    }
    if (process_ == 0) {
        become(words, errorFile);
    }
}

Process::~Process() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

void Process::awaitRest() const {
    while (statusLine(process_, "State:").find('S') == std::string::npos) {
    }
}

double Process::processorNanoseconds() const {
    double sum = 0;
    const std::string tasks = "/proc/" + std::to_string(process_) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        double spent = 0;
        std::ifstream(task.path() / "schedstat") >> spent;
        sum += spent;
    }
    return sum;
}

double Process::residentBytes() const {
    return std::strtod(statusLine(process_, "VmRSS:").c_str(), nullptr) * 1024;
}

double Process::wakeUps() const {
    return std::strtod(statusLine(process_, "voluntary_ctxt_switches:").c_str(), nullptr);
}

} // namespace Vestrel::Bench
