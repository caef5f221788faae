// SPDX-License-Identifier: Apache-2.0
// The command line of vestrelctl: help, version, wrong usage, and where the result goes.
#include "ctl/ExitStatus.h"
#include "tests/ctl/Ran.h"
#include "tests/support/Shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <fstream>

namespace Vestrel::Tests {

namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

const std::vector<std::string> verbs{"check", "files",  "install", "keys",   "messages",
                                     "plan",  "remove", "resync",  "status", "trace"};

// The installed program's twin, run by a shell.
Ended ctlProcess(const std::string& arguments) {
    return shell(VESTREL_CTL " " + arguments);
}

int statusOf(const std::string& arguments) {
    return ctlProcess(arguments).status;
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
                    Words{"install", ".ima", "file", "--wait", "soon"},
                    Words{"install", ".ima", "file", "--wait", "3601"}, Words{"remove", ".ima"},
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
    for (const std::string arguments :
         {"--help", "--version", "check --help", "messages", "messages --json",
          "check .ima /dev/null", "install .ima /dev/null", "remove .ima none", "plan",
          "plan --json", "status", "status --json", "keys", "files"}) {
        const Ended ended = ctlProcess(arguments + " 2>&1 >/dev/full");
        EXPECT_EQ(ended.status, 1) << arguments;
        EXPECT_THAT(ended.output, HasSubstr("vestrelctl: the result could not be written\n"))
            << arguments;
    }
}

TEST(ExitStatus, GivesTheGraverOfTwo) {
    const std::array gravest{ExitStatus::failed, ExitStatus::refused,   ExitStatus::unknown,
                             ExitStatus::late,   ExitStatus::unhealthy, ExitStatus::done};
    for (std::size_t i = 0; i < gravest.size(); ++i) {
        for (std::size_t j = i; j < gravest.size(); ++j) {
            EXPECT_EQ(worse(gravest[i], gravest[j]), gravest[i]);
            EXPECT_EQ(worse(gravest[j], gravest[i]), gravest[i]);
        }
    }
}

} // namespace

} // namespace Vestrel::Tests
