// SPDX-License-Identifier: Apache-2.0
// Tests that an owned descriptor is closed once, when its last owner goes, and never before.
#include "platform/zell/OwnedFd.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <cerrno>
#include <type_traits>
#include <utility>

namespace Zell::Tests {

namespace {

static_assert(!std::is_copy_constructible_v<OwnedFd> && !std::is_copy_assignable_v<OwnedFd>);
static_assert(std::is_nothrow_move_constructible_v<OwnedFd> &&
              std::is_nothrow_move_assignable_v<OwnedFd>);
static_assert(!std::is_convertible_v<int, OwnedFd> && !std::is_convertible_v<OwnedFd, int>);

int openSomething() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

} // namespace

TEST(OwnedFd, HoldsNothingByDefault) {
    const OwnedFd fd;
    EXPECT_FALSE(fd);
    EXPECT_EQ(fd.get(), -1);
}

TEST(OwnedFd, HoldsNothingAfterAFailedOpen) {
    const OwnedFd fd(::open("/nowhere/at/all", O_RDONLY | O_CLOEXEC));
    EXPECT_FALSE(fd);
}

TEST(OwnedFd, CountsZeroAsADescriptor) {
    OwnedFd fd(0);
    EXPECT_TRUE(fd);
    EXPECT_EQ(fd.release(), 0);
}

TEST(OwnedFd, ClosesWhatItHoldsAtItsEnd) {
    const int number = openSomething();
    ASSERT_TRUE(isOpen(number));
    {
        const OwnedFd fd(number);
        EXPECT_TRUE(fd);
        EXPECT_EQ(fd.get(), number);
        EXPECT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(OwnedFd, GivesADescriptorUpWithoutClosingIt) {
    const int number = openSomething();
    {
        OwnedFd fd(number);
        EXPECT_EQ(fd.release(), number);
        EXPECT_FALSE(fd);
    }
    EXPECT_TRUE(isOpen(number));
    ::close(number);
}

TEST(OwnedFd, MovesTheDescriptorToANewOwner) {
    const int number = openSomething();
    OwnedFd first(number);
    {
        const OwnedFd second(std::move(first));
        EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): a moved-from owner holds nothing
        EXPECT_EQ(second.get(), number);
        EXPECT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(OwnedFd, ClosesItsOwnDescriptorWhenItTakesOverAnother) {
    const int replaced = openSomething();
    const int taken = openSomething();
    OwnedFd fd(replaced);
    fd = OwnedFd(taken);
    EXPECT_FALSE(isOpen(replaced));
    EXPECT_EQ(fd.get(), taken);
    EXPECT_TRUE(isOpen(taken));
    fd.reset();
    EXPECT_FALSE(fd);
    EXPECT_FALSE(isOpen(taken));
}

TEST(OwnedFd, KeepsItsDescriptorWhenMovedToItself) {
    OwnedFd fd(openSomething());
    OwnedFd& same = fd;
    fd = std::move(same);
    EXPECT_TRUE(isOpen(fd.get()));
}

TEST(OwnedFd, KeepsErrnoWhenItCloses) {
    const int number = openSomething();
    {
        const OwnedFd fd(number);
        ::close(number); // so that the owner's close fails with EBADF
        errno = ENOKEY;
    }
    EXPECT_EQ(errno, ENOKEY);
}

} // namespace Zell::Tests
