// SPDX-License-Identifier: Apache-2.0
// The command line of vestrelctl: help, version, wrong usage, and where the result goes.
#include "ctl/ExitStatus.h"
#include "tests/ctl/Ran.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <array>
#include <cstdlib>
#include <fstream>

namespace Vestrel::Tests {

namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

const std::vector<std::string> verbs{"check", "files",  "install", "keys",   "messages",
                                     "plan",  "remove", "resync",  "status", "trace"};

// The status of the installed program's twin, run by a shell.
int statusOf(const std::string& arguments) {
    const int status = std::system((std::string(VESTREL_CTL) + " " + arguments).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(CtlCommandLine, HelpNamesEveryVerbAndEndsWithStatusZero) {
    const Ran ran = ctl({"--help"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.err, "");
    EXPECT_THAT(ran.out, HasSubstr("--json"));
    for (const std::string& verb : verbs) {
        EXPECT_THAT(ran.out, HasSubstr("\n  " + verb + " "));
    }
}

TEST(CtlCommandLine, EveryVerbHasAHelpOfItsOwn) {
    for (const std::string& verb : verbs) {
        const Ran ran = ctl({verb, "--help"});
        EXPECT_EQ(ran.status, 0) << verb;
        EXPECT_THAT(ran.out, HasSubstr("vestrelctl " + verb));
    }
}

TEST(CtlCommandLine, VersionIsOneLineAndEndsWithStatusZero) {
    const Ran ran = ctl({"--version"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "vestrelctl " VESTREL_VERSION "\n");
}

class WrongCtlUsage : public testing::TestWithParam<Words> {};

TEST_P(WrongCtlUsage, IsExplainedOnStderrAndEndsWithStatusTwo) {
    const Ran ran = ctl(GetParam());
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out, "");
    EXPECT_NE(ran.err, "");
}

INSTANTIATE_TEST_SUITE_P(
    CtlCommandLine, WrongCtlUsage,
    testing::Values(Words{}, Words{"--json"}, Words{"frobnicate"}, Words{"--unknown"},
                    Words{"messages", "--unknown"}, Words{"check"}, Words{"check", ".ima"},
                    Words{"check", ".other", "file"}, Words{"check", ".ima", "file", "--issuer"},
                    Words{"install", ".ima", "file", "--wait", "-1"},
                    Words{"install", ".ima", "file", "--wait", "soon"}, Words{"remove", ".ima"},
                    Words{"remove", ".ima", "../name"}, Words{"plan", "word"},
                    Words{"plan", "check", ".ima", "file"}, Words{"keys", "none"},
                    Words{"files", ".ima", "more"}, Words{"status", "word"}),
    [](const auto& test) { return "line" + std::to_string(test.index); });

TEST(CtlCommandLine, JsonMayStandBeforeAndBehindTheVerb) {
    EXPECT_EQ(ctl({"--json", "messages"}).out, ctl({"messages", "--json"}).out);
}

TEST(CtlProcess, EndsWithTheStatusOfTheVerb) {
    EXPECT_EQ(statusOf("messages >/dev/null"), 0);
    EXPECT_EQ(statusOf("messages NO_SUCH_MESSAGE 2>/dev/null"), 1);
    EXPECT_EQ(statusOf("frobnicate 2>/dev/null"), 2);
}

TEST(CtlProcess, FailsWhenItsResultCannotBeWritten) {
    if (!std::ofstream("/dev/full")) {
        GTEST_SKIP() << "there is no /dev/full";
    }
    EXPECT_EQ(statusOf("messages >/dev/full 2>/dev/null"), 1);
}

TEST(ExitStatus, GivesTheGraverOfTwo) {
    EXPECT_EQ(worse(ExitStatus::done, ExitStatus::late), ExitStatus::late);
    EXPECT_EQ(worse(ExitStatus::late, ExitStatus::unknown), ExitStatus::unknown);
    EXPECT_EQ(worse(ExitStatus::refused, ExitStatus::unknown), ExitStatus::refused);
    EXPECT_EQ(worse(ExitStatus::refused, ExitStatus::failed), ExitStatus::failed);
    EXPECT_EQ(worse(ExitStatus::done, ExitStatus::done), ExitStatus::done);
}

} // namespace

} // namespace Vestrel::Tests
