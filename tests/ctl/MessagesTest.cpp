// SPDX-License-Identifier: Apache-2.0
// vestrelctl messages: every record of library and agent, in words.
#include "logmsg/Catalogue.h"
#include "logmsg/LogMessages.h"
#include "platform/zell/LogSinks.h"
#include "tests/ctl/Ran.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vestrel::Tests {

namespace {

TEST(CtlMessages, HasEveryRecordOfTheLibraryAndOfTheAgent) {
    const Ran ran = ctl({"messages", "--json"});
    EXPECT_EQ(ran.status, 0);
    const auto rows = ran.json().at("messages");
    const auto records = catalogue(logDescriptors);
    ASSERT_EQ(rows.size(), records.size());
    ASSERT_EQ(rows.size(), logMessageCount + 2);
    for (std::size_t i = 0; i < records.size(); ++i) {
        const Zell::LogDescriptor& record = records[i];
        EXPECT_EQ(rows[i].at("name"), record.name);
        EXPECT_EQ(rows[i].at("format"), record.format);
        EXPECT_EQ(rows[i].at("severity"), record.severity);
        EXPECT_EQ(rows[i].at("messageId"), Zell::messageId(record.name));
        EXPECT_THAT(rows[i].at("explanation").get<std::string>(),
                    testing::StartsWith(record.explanation));
        EXPECT_THAT(rows[i].at("recommendedAction").get<std::string>(), testing::EndsWith("."));
    }
}

TEST(CtlMessages, ExplainsTheNamedOneInWords) {
    const Ran ran = ctl({"messages", "VESTREL_INTEGRITY"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out,
              "Name:         VESTREL_INTEGRITY\n"
              "Format:       Integrity error of type %s (%s), for file %s, invoked by %s\n"
              "Explanation:  The Integrity Measurement Architecture (IMA) apparaisal raised a "
              "warning.\n"
              "Action:       Contact support if the condition persists.\n"
              "Severity:     4\n"
              "Journal:      " +
                  Zell::messageId("VESTREL_INTEGRITY") + "\n");
}

TEST(CtlMessages, ExplainsTheAgentsOwnAsWell) {
    for (const char* const name :
         {"VESTREL_INTEGRITY_DRIFT", "VESTREL_INTEGRITY_LOAD_KEY_EXPLANATION"}) {
        const Ran ran = ctl({"messages", "--json", name});
        EXPECT_EQ(ran.status, 0) << ran.err;
        ASSERT_EQ(ran.json().at("messages").size(), 1U);
        EXPECT_EQ(ran.json().at("messages")[0].at("name"), name);
    }
}

TEST(CtlMessages, SaysWhenThereIsNoSuchMessage) {
    const Ran ran = ctl({"messages", "--json", "NO_SUCH_MESSAGE", "VESTREL_WARNING"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.json().at("messages").size(), 1U) << "the other one is explained all the same";
    EXPECT_EQ(ran.err, "vestrelctl: no message is named NO_SUCH_MESSAGE\n");
}

} // namespace

} // namespace Vestrel::Tests
