// SPDX-License-Identifier: Apache-2.0
// The process for a while as that of an ordinary user.
#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

namespace Vestrel::Tests {

// Without the rights of root, such as to read every file, while it lives.
class Unprivileged {
public:
    Unprivileged() {
        if (wasRoot_) {
            EXPECT_EQ(::seteuid(65534), 0);
        }
    }

    ~Unprivileged() {
        if (wasRoot_) {
            EXPECT_EQ(::seteuid(0), 0);
        }
    }

    Unprivileged(const Unprivileged&) = delete;
    Unprivileged& operator=(const Unprivileged&) = delete;

private:
    bool wasRoot_ = ::geteuid() == 0;
};

} // namespace Vestrel::Tests
