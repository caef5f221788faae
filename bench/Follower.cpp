// SPDX-License-Identifier: Apache-2.0
// Children that follow a directory.
#include "bench/Follower.h"

#include "bench/KeyringRoads.h"
#include "bench/Rings.h"
#include "keyring/IntegrityKeyringSm.h"
#include "platform/zell/ActivityManager.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace Vestrel::Bench {

namespace {

constexpr const char* readyFile = "/run/vestrel-bench-ready";

void tellReady() {
    std::ofstream(readyFile).flush();
}

[[noreturn]] void followByStateMachine() {
    const auto loop = Zell::ActivityFacility::activityManager();
    [[maybe_unused]] const auto sm = // NOLINT: kept alive
        integrityKeyringSmFactory(Orvo::makeNode<IntegrityKeyringColl>());
    tellReady();
    loop->run();
    _exit(1);
}

[[noreturn]] void followBarely(key_serial_t ring) {
    const int inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    inotify_add_watch(inotify, imaDirectory, IN_CLOSE_WRITE | IN_MOVE | IN_DELETE);
    tellReady();
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

} // namespace

Follower::Follower(Kind kind, key_serial_t ring)
    : process_({"/proc/self/exe", "--follow",
                std::to_string(ring) + (kind == Kind::bare ? " bare" : " state-machine")},
               "/dev/null") {
    while (!std::filesystem::remove(readyFile)) {
    }
    process_.awaitRest();
}

void Follower::follow(const std::string& words) {
    key_serial_t ring = 0;
    std::string kind;
    std::istringstream(words) >> ring >> kind;
    standInIs(ring);
    kind == "bare" ? followBarely(ring) : followByStateMachine();
}

} // namespace Vestrel::Bench
