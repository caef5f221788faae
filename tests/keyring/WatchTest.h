// SPDX-License-Identifier: Apache-2.0
// What the tests of the two watches and their descriptor collections share.
#pragma once

#include "platform/zell/FileDescriptor.h"
#include "tests/support/StateMachineTest.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace Vestrel::Tests {

class WatchTest : public StateMachineTest {
protected:
    WatchTest() { start(); }

    ~WatchTest() override {
        EXPECT_EQ(calls.pending(), 0U);
        EXPECT_EQ(keys.pendingFailures(), 0U);
    }

    // A record whose numbers tell whether they were carried over. Not to be given to the state
    // machine for keeping: it would close them.
    static KeyringWatcherInfo filled(const std::string& keyring) {
        KeyringWatcherInfo info(keyring);
        info.readFd = 901;
        info.writeFd = 902;
        info.keyringId = 903;
        info.keyringWatchId = 904;
        info.inotifyFd = 905;
        info.inotifyWatchId = 906;
        return info;
    }

    static void expectConfigured(const Zell::FileDescriptor& descriptor, const std::string& name,
                                 int number) {
        EXPECT_EQ(descriptor.name(), name);
        EXPECT_TRUE(descriptor.nonBlocking());
        EXPECT_EQ(static_cast<int>(descriptor.notificationInterface()), 1);
        EXPECT_TRUE(descriptor.notifyOnReadable());
        EXPECT_EQ(descriptor.descriptor(), number);
        EXPECT_NE(fcntl(number, F_GETFL) & O_NONBLOCK, 0);
    }

    // Of a recorded call such as "close 7": its first argument.
    static int firstNumber(const std::string& call) {
        return std::stoi(call.substr(call.find(' ') + 1));
    }

    using Texts = std::vector<std::string>;
};

} // namespace Vestrel::Tests
