// SPDX-License-Identifier: Apache-2.0
// The main function of the kernel cases, which are at home in the guest of tests/kernel/in-vm only:
// they empty keyrings and /etc/keys.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

bool isGuest() {
    std::string name;
    std::getline(std::ifstream("/etc/hostname"), name);
    return name == "vestrel-guest";
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests) && !isGuest()) {
        std::fputs("Not in the test guest: use tests/kernel/run-cases.\n", stderr);
        return 1;
    }
    umask(022);
    return RUN_ALL_TESTS();
}
