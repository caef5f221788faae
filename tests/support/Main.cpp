// SPDX-License-Identifier: Apache-2.0
// The main function of the test programs: each has its own /etc and /run.
#include "tests/support/PrivateDirectories.h"

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests)) {
        Vestrel::Tests::privateDirectoriesEnter();
    }
    return RUN_ALL_TESTS();
}
