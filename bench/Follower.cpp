// SPDX-License-Identifier: Apache-2.0
// Children that follow a directory.
#include "bench/Follower.h"

#include "bench/KeyringRoads.h"
#include "bench/Rings.h"
#include "keyring/IntegrityKeyringSm.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/OwnedFd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace Vestrel::Bench {

namespace {

void tellReady(int pipe) {
    [[maybe_unused]] const auto written = write(pipe, "r", 1);
}

[[noreturn]] void followByStateMachine(int ready) {
    const auto loop = Zell::ActivityFacility::activityManager();
    const auto sm = integrityKeyringSmFactory(Orvo::makeNode<IntegrityKeyringColl>());
    tellReady(ready);
    loop->run();
    _exit(1);
}

[[noreturn]] void followBarely(int ready, key_serial_t ring) {
    const int inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    inotify_add_watch(inotify, imaDirectory, IN_CLOSE_WRITE | IN_MOVE | IN_DELETE);
    tellReady(ready);
    alignas(inotify_event) std::array<char, 4096> buffer; // NOLINT: filled by read()
    for (pollfd wait{inotify, POLLIN, 0};;) {
        poll(&wait, 1, -1);
        const ssize_t got = read(inotify, buffer.data(), buffer.size());
        for (ssize_t at = 0; at < got;) {
            const auto* const event =
                reinterpret_cast<const inotify_event*>(buffer.data() + at); // aligned by the kernel
            addBarely(imaDirectory + std::string("/") + static_cast<const char*>(event->name),
                      ring);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
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

Follower::Follower(Kind kind, key_serial_t ring) {
    std::array<int, 2> ready{};
    if (pipe(ready.data()) == -1 || (process_ = fork()) == -1) {
        std::perror("pipe or fork");
        std::exit(1);
    }
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const std::string words = std::to_string(ready[1]) + " " + std::to_string(ring) +
                                  (kind == Kind::bare ? " bare" : " state-machine");
        execl("/proc/self/exe", "vestrel-bench-keyring", "--follow", words.c_str(), nullptr);
        _exit(1);
    }
    const Zell::OwnedFd readEnd(ready[0]);
    close(ready[1]);
    char answer = 0;
    if (read(readEnd.get(), &answer, 1) != 1) {
        std::fputs("a follower did not start\n", stderr);
        std::exit(1);
    }
    awaitRest();
}

void Follower::follow(const std::string& words) {
    int ready = -1;
    key_serial_t ring = 0;
    std::string kind;
    std::istringstream(words) >> ready >> ring >> kind;
    standInIs(ring);
    kind == "bare" ? followBarely(ready, ring) : followByStateMachine(ready);
}

Follower::~Follower() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

void Follower::awaitRest() const {
    while (statusLine(process_, "State:").find('S') == std::string::npos) {
    }
}

double Follower::residentBytes() const {
    return std::strtod(statusLine(process_, "VmRSS:").c_str(), nullptr) * 1024;
}

} // namespace Vestrel::Bench
