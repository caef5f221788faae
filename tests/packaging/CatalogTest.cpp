// SPDX-License-Identifier: Apache-2.0
// The message catalog, as journalctl reads it.
#include "logmsg/Catalogue.h"
#include "logmsg/LogMessages.h"
#include "platform/zell/LogSinks.h"
#include "tests/support/Shell.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

namespace Vestrel::Tests {

namespace {

using testing::HasSubstr;

std::size_t lines(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

// A system that holds nothing but the catalog, read in.
class Catalog : public testing::Test {
protected:
    void SetUp() override {
        if (shell("journalctl --version 2>&1").status != 0) {
            GTEST_SKIP() << "journalctl is not installed";
        }
        const auto folder = std::filesystem::path(root_.path()) / "usr/lib/systemd/catalog";
        std::filesystem::create_directories(folder);
        std::filesystem::copy(VESTREL_CATALOG, folder);
        const Ended update = journalctl("--update-catalog");
        ASSERT_EQ(update.status, 0) << update.output;
        ASSERT_EQ(update.output, "");
    }

    Ended journalctl(const std::string& arguments) const {
        return shell("journalctl --root=" + root_.path() + " " + arguments + " 2>&1");
    }

    // What journalctl -x adds to a message of that name.
    std::string explanation(const char* name) const {
        return journalctl("--dump-catalog " + Zell::messageId(name)).output;
    }

    TempDir root_;
};

TEST_F(Catalog, ListsEveryRecordAndNothingElse) {
    const Ended listed = journalctl("--list-catalog");
    ASSERT_EQ(listed.status, 0) << listed.output;
    const auto records = catalogue(logDescriptors);
    EXPECT_EQ(lines(listed.output), records.size());
    for (const Zell::LogDescriptor& record : records) {
        EXPECT_THAT(listed.output,
                    HasSubstr(Zell::messageId(record.name) + " VestrelSm: " + record.name + "\n"));
    }
}

TEST_F(Catalog, ExplainsEveryRecordInItsOwnWords) {
    for (const Zell::LogDescriptor& record : catalogue(logDescriptors)) {
        EXPECT_THAT(explanation(record.name), HasSubstr(record.explanation));
    }
}

TEST_F(Catalog, WordsTheMarkersAndKeepsTheTexts) {
    const std::string support = "\n\nContact support if the condition persists.\n";
    EXPECT_THAT(explanation("VESTREL_INTEGRITY_LOAD_KEY_FAIL"), HasSubstr(support));
    EXPECT_THAT(explanation("VESTREL_INTEGRITY"), HasSubstr(support));
    EXPECT_THAT(explanation("VESTREL_WARNING"),
                HasSubstr("\n\nIf this setting was not intentionally modified, please contact "
                          "support for assistance restoring the default setting.\n"));
    EXPECT_THAT(explanation("MEASUREDBOOT_PCR_CONFIG_WARNING"),
                HasSubstr("\n\nCheck PCR bank config.\n"));
    EXPECT_THAT(explanation("BOOT_LOADER_DEPRECATION_WARNING"),
                HasSubstr("\n\nNo action is required.\n"));
}

TEST_F(Catalog, HasNothingForAnotherMessage) {
    EXPECT_THAT(explanation("NO_SUCH_MESSAGE"), testing::Not(HasSubstr("VestrelSm")));
}

} // namespace

} // namespace Vestrel::Tests
