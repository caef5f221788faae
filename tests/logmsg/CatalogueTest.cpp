// SPDX-License-Identifier: Apache-2.0
// Tests of the agent's own log messages, of the list of all of them, and of how their texts read.
#include "logmsg/Catalogue.h"

#include "logmsg/LogMessages.h"
#include "logmsg/RecordText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

Zell::LogDescriptor record(const char* explanation, const char* action) {
    return {"NAME", "%s", explanation, action, Zell::severityWarning, 0};
}

TEST(AgentMessages, AreTwoRecordsOfFixedTexts) {
    ASSERT_EQ(agentDescriptors.size(), 2U);
    const Zell::LogDescriptor& drift = agentDescriptor(AgentMessageId::drift);
    EXPECT_STREQ(drift.name, "VESTREL_INTEGRITY_DRIFT");
    EXPECT_STREQ(drift.format,
                 "Record, kernel and directories had drifted apart: %s. Everything is rebuilt.");
    EXPECT_STREQ(
        drift.explanation,
        "Events were lost, or a keyring was changed in a way that the kernel does not "
        "announce. The agent reads keyrings and directories anew and loads what is missing");
    EXPECT_STREQ(drift.recommendedAction, "If it is reported again and again, look at the state "
                                          "with \"vestrelctl status\".");
    const Zell::LogDescriptor& explained = agentDescriptor(AgentMessageId::loadFailureExplained);
    EXPECT_STREQ(explained.name, "VESTREL_INTEGRITY_LOAD_KEY_EXPLANATION");
    EXPECT_STREQ(explained.format, "Certificate %s for keyring (%s): %s.");
    EXPECT_STREQ(explained.explanation,
                 "A certificate could not be loaded, and this is why as far as can be known. "
                 "\"vestrelctl check\" says the same");
    EXPECT_STREQ(explained.recommendedAction,
                 "See the troubleshooting page for the reason in parentheses.");
}

TEST(AgentMessages, AreWarningsWithNothingReserved) {
    for (const Zell::LogDescriptor& message : agentDescriptors) {
        EXPECT_EQ(message.severity, Zell::severityWarning) << message.name;
        EXPECT_EQ(message.reserved, 0U) << message.name;
    }
}

TEST(Catalogue, HasTheLibrarysRecordsAndThenTheAgents) {
    std::vector<std::string> names;
    for (const Zell::LogDescriptor& message : catalogue(logDescriptors)) {
        names.emplace_back(message.name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{
                         "VESTREL_INTEGRITY_LOAD_KEY_FAIL", "VESTREL_INTEGRITY", "VESTREL_WARNING",
                         "MEASUREDBOOT_PCR_CONFIG_WARNING", "BOOT_LOADER_DEPRECATION_WARNING",
                         "VESTREL_INTEGRITY_DRIFT", "VESTREL_INTEGRITY_LOAD_KEY_EXPLANATION"}));
}

TEST(RecordText, EndsEachSentenceWithOneFullStop) {
    EXPECT_EQ(explanationText(record("Without", "")), "Without.");
    EXPECT_EQ(explanationText(record("With.", "")), "With.");
    EXPECT_EQ(actionText(record("", "Do this")), "Do this.");
    EXPECT_EQ(actionText(record("", "Do this.")), "Do this.");
}

TEST(RecordText, HasTheMarkersInWords) {
    EXPECT_EQ(actionText(record("", Zell::contactSupportIfItPersists)),
              "Contact support if the condition persists.");
    EXPECT_EQ(actionText(record("", Zell::noActionIsRequired)), "No action is required.");
}

} // namespace

} // namespace Vestrel::Tests
