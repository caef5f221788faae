// SPDX-License-Identifier: Apache-2.0
// What is read of a kernel's keyrings, from the model of the key service.
#include "diagnosis/KernelView.h"

#include "tests/fakes/KeyService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>

namespace Vestrel::Tests {

namespace {

constexpr std::array names{".ima", ".machine"};

class KernelViewTest : public testing::Test {
protected:
    KeyService keys_;
};

TEST_F(KernelViewTest, HasKeysAndKeyringsOfEachKeyring) {
    keys_.keyring(".ima");
    keys_.addKey(".ima", "one: 01");
    keys_.addKey(".ima", "two;and: 02");
    keys_.link(".ima", keys_.keyring(".machine", readOnlyKeyring));
    const KernelView view = kernelView(names);
    const KeyringView* const ima = view.keyring(".ima");
    ASSERT_NE(ima, nullptr);
    EXPECT_EQ(ima->error, 0);
    EXPECT_TRUE(ima->isWritable);
    EXPECT_THAT(ima->keys, testing::UnorderedElementsAre("one: 01", "two;and: 02"));
    EXPECT_THAT(ima->keyrings, testing::ElementsAre(".machine"));
    EXPECT_FALSE(view.keyring(".machine")->isWritable);
    EXPECT_EQ(view.keyring(".other"), nullptr);
}

TEST_F(KernelViewTest, KeepsTheCauseWhereAKeyringIsMissingOrSecret) {
    keys_.keyring(".ima");
    keys_.failNext("keyctl_read_alloc", EACCES);
    const KernelView view = kernelView(names);
    EXPECT_EQ(view.keyring(".ima")->error, EACCES);
    EXPECT_EQ(view.keyring(".machine")->error, ENOKEY);
}

TEST_F(KernelViewTest, HasTheBlacklist) {
    ASSERT_TRUE(kernelView(names).blacklist) << "a kernel without one lists nothing";
    EXPECT_TRUE(kernelView(names).blacklist->empty());
    keys_.keyring(".blacklist", readOnlyKeyring);
    keys_.addKey(".blacklist", "tbs:0123", {.type = "blacklist"});
    EXPECT_THAT(*kernelView(names).blacklist, testing::ElementsAre("tbs:0123"));
    keys_.failNth("keyctl_read_alloc", 1, EACCES);
    EXPECT_FALSE(kernelView(names).blacklist);
}

TEST_F(KernelViewTest, HasTheVersionOfTheKernel) {
    EXPECT_GT(kernelView(names).major, 0);
}

} // namespace

} // namespace Vestrel::Tests
