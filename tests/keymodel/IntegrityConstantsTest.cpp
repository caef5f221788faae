// SPDX-License-Identifier: Apache-2.0
// Tests where the certificate directories are.
#include "keymodel/IntegrityConstants.h"

#include <gtest/gtest.h>

namespace Vestrel::Tests {

namespace {

TEST(IntegrityConstants, NamesTheCommonDirectory) {
    EXPECT_EQ(IntegrityConstants().integrityKeyPathPrefix(), "/etc/keys");
}

TEST(IntegrityConstants, NamesEachManagedKeyringsDirectoryWithoutTheLeadingDot) {
    const IntegrityConstants constants;
    EXPECT_EQ(constants.keyringPathPrefix(".ima"), "/etc/keys/ima");
    EXPECT_EQ(constants.keyringPathPrefix(".secondary_trusted_keys"),
              "/etc/keys/secondary_trusted_keys");
    EXPECT_EQ(constants.keyringPathPrefix(".builtin_trusted_keys"),
              "/etc/keys/builtin_trusted_keys");
    EXPECT_EQ(constants.keyringPathPrefix(".machine"), "/etc/keys/machine");
}

TEST(IntegrityConstants, DropsNothingButOneLeadingDot) {
    const IntegrityConstants constants;
    EXPECT_EQ(constants.keyringPathPrefix("plain"), "/etc/keys/plain");
    EXPECT_EQ(constants.keyringPathPrefix(".a.b"), "/etc/keys/a.b");
}

} // namespace

} // namespace Vestrel::Tests
