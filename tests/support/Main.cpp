// SPDX-License-Identifier: Apache-2.0
// The main function of the test programs: each has its own /etc and /run.
#include "tests/support/PrivateDirectories.h"

#include <gtest/gtest.h>

#ifdef VESTREL_COVERAGE
#include <csignal>

extern "C" void __gcov_dump(void);
#endif

namespace {

#ifdef VESTREL_COVERAGE
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
        Vestrel::Tests::privateDirectoriesEnter();
    }
    return RUN_ALL_TESTS();
}
