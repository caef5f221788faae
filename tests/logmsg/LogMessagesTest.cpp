// SPDX-License-Identifier: Apache-2.0
// Tests of the catalogue of log messages and of the handles that raise them.
#include "logmsg/LogMessages.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace Vestrel::Tests {

namespace {

struct Expected {
    const char* name;
    const char* format;
    const char* explanation;
    const char* recommendedAction;
};

// The first four words of each record, in the order of the section.
constexpr std::array<Expected, 5> expectedRecords{{
    {"VESTREL_INTEGRITY_LOAD_KEY_FAIL", "Failed to load certificate %s in keyring (%s). %s.",
     "The certificate could not be loaded in the keyring", "\x01"},
    {"VESTREL_INTEGRITY", "Integrity error of type %s (%s), for file %s, invoked by %s",
     "The Integrity Measurement Architecture (IMA) apparaisal raised a warning", "\x01"},
    {"VESTREL_WARNING", "%s is currently %s (default: %s)",
     "A configuration value differs from its manufacturing default. It is advised to keep the "
     "manufacturing defaults.",
     "If this setting was not intentionally modified, please contact support for assistance "
     "restoring the default setting."},
    {"MEASUREDBOOT_PCR_CONFIG_WARNING",
     "Error found in PCR bank config. Measured boot functionality may be limited. Please check PCR "
     "bank config. Reason: %s",
     "Error found in PCR bank config.", "Check PCR bank config"},
    {"BOOT_LOADER_DEPRECATION_WARNING",
     "%s is deprecated because its secure boot certificate is about to expire.",
     "A component of the boot loader is signed by a certificate that expires.", "\x02"},
}};

TEST(LogMessages, AreFiveRecordsOfFixedTexts) {
    ASSERT_EQ(logDescriptors.size(), expectedRecords.size());
    for (std::size_t i = 0; i < expectedRecords.size(); ++i) {
        EXPECT_STREQ(logDescriptors[i].name, expectedRecords[i].name);
        EXPECT_STREQ(logDescriptors[i].format, expectedRecords[i].format);
        EXPECT_STREQ(logDescriptors[i].explanation, expectedRecords[i].explanation);
        EXPECT_STREQ(logDescriptors[i].recommendedAction, expectedRecords[i].recommendedAction);
    }
}

TEST(LogMessages, AreWarningsWithNothingReserved) {
    for (const Zell::LogDescriptor& record : logDescriptors) {
        EXPECT_EQ(record.severity, 4) << record.name;
        EXPECT_EQ(record.reserved, 0U) << record.name;
    }
}

TEST(LogMessages, HaveAHandleEachWithTheFacilitysOwnLimit) {
    const LogHandles handles;
    const std::array<const Zell::LogHandle*, 5> all{
        &handles.VESTREL_INTEGRITY_LOAD_KEY_FAIL, &handles.VESTREL_INTEGRITY,
        &handles.VESTREL_WARNING, &handles.MEASUREDBOOT_PCR_CONFIG_WARNING,
        &handles.BOOT_LOADER_DEPRECATION_WARNING};
    std::set<unsigned> idHashes;
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(&all[i]->descriptor(), &logDescriptors[i]);
        EXPECT_TRUE(all[i]->interval().isZero());
        EXPECT_EQ(all[i]->backoff(), 1.0);
        EXPECT_EQ(all[i]->burst(), 0U);
        EXPECT_EQ(all[i]->rateLimitArgsMask(), 0U);
        idHashes.insert(all[i]->idHash());
    }
    EXPECT_EQ(idHashes.size(), 5U);
}

} // namespace

} // namespace Vestrel::Tests
