// SPDX-License-Identifier: Apache-2.0
// Makes descriptors scarce for the tests.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>

namespace Vestrel::Tests {

// While it lives, only so many descriptors can be opened in addition.
class FewDescriptors {
public:
    explicit FewDescriptors(rlim_t count) {
        getrlimit(RLIMIT_NOFILE, &before_);
        int limit = 0;
        for (rlim_t free = 0; free < count; ++limit) {
            free += fcntl(limit, F_GETFD) == -1 ? 1U : 0U;
        }
        rlimit few = before_;
        few.rlim_cur = static_cast<rlim_t>(limit);
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    }

    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;

private:
    rlimit before_{};
};

} // namespace Vestrel::Tests
