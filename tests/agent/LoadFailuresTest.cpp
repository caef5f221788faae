// SPDX-License-Identifier: Apache-2.0
// Tests which refusals are explained, and when.
#include "agent/LoadFailures.h"

#include "platform/zell/LogSinks.h"
#include "tests/keyring/CertificateDirectories.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace Vestrel::Tests {

namespace {

using testing::HasSubstr;

class LoadFailuresTest : public CertificateDirectories {
protected:
    LoadFailuresTest() {
        start();
        Zell::LogFacility::sinkIs([this](const Zell::LogMessage& message) {
            messages.push_back(Zell::logLine(message));
            failures_->seen(message);
        });
        keys.judgeWith([](auto) { return EBADMSG; });
    }

    std::size_t explained() const {
        return static_cast<std::size_t>(std::ranges::count_if(messages, [](const auto& line) {
            return line.starts_with("VESTREL_INTEGRITY_LOAD_KEY_EXPLANATION: ");
        }));
    }

    std::unique_ptr<LoadFailures> failures_ = std::make_unique<LoadFailures>(loop);
};

TEST_F(LoadFailuresTest, ExplainsARefusalAfterItsMessage) {
    write(file("bad"), "no certificate");
    dispatch();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_THAT(messages[0], HasSubstr("VESTREL_INTEGRITY_LOAD_KEY_FAIL: "));
    EXPECT_THAT(messages[1],
                testing::StartsWith("VESTREL_INTEGRITY_LOAD_KEY_EXPLANATION: Certificate " +
                                    file("bad") +
                                    " for keyring (.ima): refused (not-a-certificate, \"Bad "
                                    "message\" or \"Invalid argument\"): "));
}

TEST_F(LoadFailuresTest, SaysWhatElseIsToBeKnownOfTheFile) {
    CertificatePlan plan;
    plan.notAfter = "210101000000Z";
    const Bytes expired = CertificateAuthority::generate().issue(plan);
    for (const char* const name : {"expired", "twin"}) {
        write(file(name), {expired.begin(), expired.end()});
    }
    dispatch();
    ASSERT_EQ(explained(), 2U);
    EXPECT_THAT(messages[2], HasSubstr("; " + file("twin") + " carries the same key"));
    EXPECT_THAT(messages[2], HasSubstr("; it expired on 2021-01-01, which the kernel ignores"));
}

TEST_F(LoadFailuresTest, WaitsUntilTheHandlerIsThrough) {
    sm->loadFile(".ima", file("missing"));
    EXPECT_EQ(messages.size(), 1U);
    dispatch();
    EXPECT_EQ(messages.size(), 2U);
    EXPECT_THAT(messages[1], HasSubstr("refused (unreadable-file, \"No such file or directory\")"));
}

TEST_F(LoadFailuresTest, ExplainsABoundedNumberOfABurst) {
    for (std::size_t i = 0; i < LoadFailures::maxWaiting + 5; ++i) {
        sm->loadFile(".ima", file("missing-" + std::to_string(i)));
    }
    dispatch();
    EXPECT_EQ(explained(), LoadFailures::maxWaiting);
    sm->loadFile(".ima", file("later"));
    dispatch();
    EXPECT_EQ(explained(), LoadFailures::maxWaiting + 1);
}

TEST_F(LoadFailuresTest, ExplainsNoOtherMessage) {
    static const Zell::LogDescriptor other{"OTHER", "", "", "", Zell::severityWarning, 0};
    const std::string text;
    const std::array<Orvo::String, 3> arguments{"a", ".ima", "c"};
    failures_->seen({other, arguments, text});
    dispatch();
    EXPECT_TRUE(messages.empty());
}

TEST_F(LoadFailuresTest, ForgetsWhatWaitsWhenItGoes) {
    sm->loadFile(".ima", file("missing"));
    Zell::LogFacility::sinkIs(nullptr);
    failures_ = nullptr;
    dispatch();
    EXPECT_EQ(explained(), 0U);
}

} // namespace

} // namespace Vestrel::Tests
