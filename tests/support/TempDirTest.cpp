// SPDX-License-Identifier: Apache-2.0
// Checks the tests' private directory.
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace Vestrel::Tests {
namespace {

TEST(TempDir, IsPrivateAndGoneAtTheEndWithAllItHolds) {
    std::string path;
    {
        TempDir dir;
        TempDir other;
        path = dir.path();
        EXPECT_NE(path, other.path());
        EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms::owner_all);
        dir.makeDirectory("sub");
        dir.write("sub/file", "text");
        dir.makeFifo("fifo");
        dir.makeSymlink("dangling", "/nowhere/at/all");
        EXPECT_TRUE(dir.has("dangling"));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(TempDir, WritesRenamesAndRemovesFiles) {
    TempDir dir;
    const std::string bytes("a\0b\n", 4);
    EXPECT_EQ(dir.write("one", bytes), dir.path("one"));
    EXPECT_EQ(dir.read("one"), bytes);
    dir.write("one", "shorter");
    EXPECT_EQ(dir.rename("one", "two"), dir.path("two"));
    EXPECT_FALSE(dir.has("one"));
    EXPECT_EQ(dir.read("two"), "shorter");
    dir.remove("two");
    EXPECT_FALSE(dir.has("two"));
}

TEST(TempDirDeathTest, EndsTheProcessWhenTheGroundIsNotAsATestSays) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TempDir dir;
    EXPECT_DEATH(dir.remove("absent"), "TempDir: remove .*absent: No such file");
    EXPECT_DEATH(dir.write("no/such", ""), "TempDir: write");
}

} // namespace
} // namespace Vestrel::Tests
