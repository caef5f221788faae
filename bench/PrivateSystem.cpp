// SPDX-License-Identifier: Apache-2.0
// Namespaces for the benches.
#include "bench/PrivateSystem.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace Vestrel::Bench {

namespace {

constexpr const char* queueLength = "/proc/sys/net/unix/max_dgram_qlen";

void demand(bool success, const char* step) {
    if (!success) {
        std::fprintf(stderr, "%s: %s (run as root)\n", step, std::strerror(errno));
        std::exit(1);
    }
}

void ownDirectory(const char* path) {
    demand(mount("tmpfs", path, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") == 0, path);
}

} // namespace

void ownDirectories() {
    demand(unshare(CLONE_NEWNS) == 0, "unshare");
    demand(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount /");
    ownDirectory("/etc");
    ownDirectory("/run");
}

void longQueues() {
    demand(unshare(CLONE_NEWNET) == 0, "unshare");
    std::ofstream(queueLength) << 1000; // of this network namespace
}

} // namespace Vestrel::Bench
