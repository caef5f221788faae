// SPDX-License-Identifier: Apache-2.0
// The fields of the kernel's text of a key.
#include "keymodel/KernelKeyText.h"

#include <gtest/gtest.h>

namespace Vestrel::Tests {

TEST(KernelKeyText, HasTheFieldsInTheirOrder) {
    const KernelKeyText key("asymmetric;12;34;39010000;Leaf: a0");
    EXPECT_EQ(key.type, "asymmetric");
    EXPECT_EQ(key.uid, "12");
    EXPECT_EQ(key.gid, "34");
    EXPECT_EQ(key.permissions, "39010000");
    EXPECT_EQ(key.description, "Leaf: a0");
}

TEST(KernelKeyText, KeepsTheWholeDescription) {
    EXPECT_EQ(KernelKeyText("user;0;0;0;;before;after;").description, ";before;after;");
    EXPECT_EQ(KernelKeyText("user;0;0;0;\n\xff").description, "\n\xff");
}

TEST(KernelKeyText, HasNothingWhereAFieldIsMissing) {
    EXPECT_EQ(KernelKeyText("user;0;0;0;").description, "");
    EXPECT_EQ(KernelKeyText("user;0;0;0").permissions, "0");
    EXPECT_EQ(KernelKeyText("user;0;0;0").description, "");
    EXPECT_EQ(KernelKeyText("user").type, "user");
    EXPECT_EQ(KernelKeyText("user").uid, "");
    EXPECT_EQ(KernelKeyText("").type, "");
}

TEST(KernelKeyText, TellsAKeyringByTheWholeType) {
    EXPECT_TRUE(KernelKeyText("keyring;0;0;0;.ima").isKeyring());
    EXPECT_FALSE(KernelKeyText("keyrings;0;0;0;.ima").isKeyring());
    EXPECT_FALSE(KernelKeyText("user;keyring;0;0;.ima").isKeyring());
}

} // namespace Vestrel::Tests
