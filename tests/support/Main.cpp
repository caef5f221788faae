// SPDX-License-Identifier: Apache-2.0
// The main function of the test programs: private /etc and /run, so that the fixed paths of the
// system can be used as they are and tests of several programs may run side by side.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef VESTREL_COVERAGE
#include <csignal>
#endif
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

[[noreturn]] void giveUp(const char* step) {
    std::fprintf(stderr,
                 "%s: %s\nThe tests mount over their own /etc and /run: run them as root, or allow "
                 "user namespaces.\n",
                 step, std::strerror(errno));
    std::exit(1);
}

void writeLine(const char* path, const std::string& text) {
    std::ofstream(path) << text;
}

// An ordinary user becomes root of a user namespace of its own.
void namespacesEnter() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    const int flags = CLONE_NEWNS | (user == 0 ? 0 : CLONE_NEWUSER);
    if (unshare(flags) == -1) {
        giveUp("unshare");
    }
    if (user != 0) {
        writeLine("/proc/self/setgroups", "deny");
        writeLine("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        writeLine("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == -1) {
        giveUp("mount /");
    }
}

void privateDirectory(const char* path) {
    if (mount("tmpfs", path, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") == -1) {
        giveUp(path);
    }
}

#ifdef VESTREL_COVERAGE
extern "C" void __gcov_dump(void);

// A process that an assertion ends counts too.
void countersAreKeptOnAbort() {
    std::signal(SIGABRT, [](int) { __gcov_dump(); });
}
#else
void countersAreKeptOnAbort() {}
#endif

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    countersAreKeptOnAbort();
    if (!GTEST_FLAG_GET(list_tests)) {
        namespacesEnter();
        privateDirectory("/etc");
        privateDirectory("/run");
        umask(022);
    }
    return RUN_ALL_TESTS();
}
