// SPDX-License-Identifier: Apache-2.0
// vestrelctl messages: every record of the library, in words.
#include "logmsg/LogMessages.h"
#include "platform/zell/LogSinks.h"
#include "tests/ctl/Ran.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vestrel::Tests {

namespace {

TEST(CtlMessages, HasEveryRecordOfTheLibrary) {
    const Ran ran = ctl({"messages", "--json"});
    EXPECT_EQ(ran.status, 0);
    const auto rows = ran.json().at("messages");
    ASSERT_EQ(rows.size(), logMessageCount);
    for (std::size_t i = 0; i < logMessageCount; ++i) {
        const Zell::LogDescriptor& record = logDescriptors[i];
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

TEST(CtlMessages, SaysWhenThereIsNoSuchMessage) {
    const Ran ran = ctl({"messages", "--json", "NO_SUCH_MESSAGE", "VESTREL_WARNING"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.json().at("messages").size(), 1U) << "the other one is explained all the same";
    EXPECT_EQ(ran.err, "vestrelctl: no message is named NO_SUCH_MESSAGE\n");
}

} // namespace

} // namespace Vestrel::Tests
