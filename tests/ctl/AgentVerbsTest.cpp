// SPDX-License-Identifier: Apache-2.0
// The verbs that ask the agent, with one, without one, and with something else in its place. What
// they say of keyrings is shown on the real kernel.
#include "survey/AgentSocket.h"
#include "tests/agent/AgentProcess.h"
#include "tests/ctl/Impostor.h"
#include "tests/ctl/Ran.h"
#include "tests/support/CertificateMaker.h"
#include "tests/support/Shell.h"
#include "tests/support/Unprivileged.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace Vestrel::Tests {

namespace {

using testing::HasSubstr;

namespace fs = std::filesystem;

const std::string hidden =
    "only root can see .ima, .secondary_trusted_keys, .builtin_trusted_keys, .machine; which keys "
    "are there cannot be known\n";
const std::string outOfReach =
    "cannot ask the agent at /run/vestrel/agent.sock: Permission denied; run as root";

class AgentVerbs : public testing::Test {
protected:
    ~AgentVerbs() override {
        fs::remove_all("/etc/keys");
        fs::remove_all(agentSocketDirectory);
    }

    static void ready(const AgentProcess& agent) { EXPECT_EQ(agent.notification(), "READY=1"); }

    static const nlohmann::json& row(const nlohmann::json& rows, const std::string& keyring) {
        return *std::ranges::find_if(
            rows, [&](const nlohmann::json& each) { return each["keyring"] == keyring; });
    }
};

TEST_F(AgentVerbs, StatusWithoutAnAgentSaysSoAndIsNotHealthy) {
    const Ran ran = ctl({"status", "--json"});
    EXPECT_EQ(ran.status, 6);
    EXPECT_EQ(ran.json()["keyrings"].size(), 4U);
    EXPECT_EQ(row(ran.json()["keyrings"], ".ima")["watched"], "unknown");
    EXPECT_TRUE(ran.json()["counters"].empty());
    EXPECT_THAT(
        ran.json()["problems"][0]["problem"].get<std::string>(),
        HasSubstr("no agent at /run/vestrel/agent.sock: No such file or directory; watches, "
                  "counters, failures and drift cannot be known"));
}

TEST_F(AgentVerbs, StatusShowsTheAgentAndItsCounters) {
    const AgentProcess agent({});
    ready(agent);
    const Ran ran = ctl({"status", "--json"});
    EXPECT_EQ(ran.json().size(), 4U) << "keyrings, counters, agent, problems";
    EXPECT_EQ(ran.json()["agent"][0]["pid"], agent.pid());
    EXPECT_EQ(ran.json()["agent"][0]["version"], VESTREL_VERSION);
    EXPECT_EQ(ran.json()["counters"].size(), 4U);
    EXPECT_EQ(row(ran.json()["counters"], ".ima")["loads"], 0);
    EXPECT_EQ(ran.status, ran.json()["problems"].empty() ? 0 : 6);
    const auto answer = ran.json();
    for (const auto& keyring : answer["keyrings"]) {
        if (keyring["serial"].is_null()) { // which this kernel does not have
            EXPECT_THAT(ran.json()["problems"].dump(),
                        testing::Not(HasSubstr(keyring["keyring"].get<std::string>())));
        }
    }
}

TEST_F(AgentVerbs, StatusIsAConditionOfTheShell) {
    const std::string line = VESTREL_CTL " status >/dev/null || echo need a look";
    EXPECT_EQ(shell(line).output, "need a look\n") << "there is no agent";
}

TEST_F(AgentVerbs, StatusIsATableForPeople) {
    const AgentProcess agent({});
    ready(agent);
    const Ran ran = ctl({"status"});
    EXPECT_THAT(ran.out, testing::StartsWith("KEYRING "));
    EXPECT_THAT(ran.out, HasSubstr("\n.machine "));
    EXPECT_THAT(ran.out, HasSubstr("\n\nKEYRING                  LOADS"));
    EXPECT_THAT(ran.out, HasSubstr("\n\nPID "));
}

TEST_F(AgentVerbs, KeysAndFilesDoWithoutAnAgentAndSayWhatTheyDoNotKnow) {
    fs::create_directories("/etc/keys/ima");
    std::ofstream("/etc/keys/ima/notes.txt") << "no certificate";
    for (const char* const verb : {"keys", "files"}) {
        const Ran ran = ctl({verb, "ima", "--json"});
        EXPECT_EQ(ran.status, 0);
        EXPECT_THAT(ran.err, HasSubstr("cannot be known"));
        EXPECT_TRUE(ran.json().contains(verb));
    }
    const Ran files = ctl({"files", ".ima", "--json"});
    ASSERT_EQ(files.json()["files"].size(), 1U);
    EXPECT_EQ(files.json()["files"][0]["file"], "/etc/keys/ima/notes.txt");
    EXPECT_EQ(files.json()["files"][0]["description"], "");
    EXPECT_EQ(files.json()["files"][0]["state"], "");
}

TEST_F(AgentVerbs, StatusTellsWhoMayNotSeeWhatCannotBeKnown) {
    fs::create_directories("/etc/keys/ima");
    const CertificateAuthority authority = CertificateAuthority::generate();
    std::ofstream("/etc/keys/ima/ca.pem") << toPem(authority.certificate());
    for (const char* const keyring :
         {"secondary_trusted_keys", "builtin_trusted_keys", "machine"}) {
        fs::create_directories(std::string("/etc/keys/") + keyring);
    }
    const AgentProcess agent({});
    ready(agent);
    const Unprivileged unprivileged;
    const Ran ran = ctl({"status", "--json"});
    EXPECT_EQ(ran.status, 4);
    EXPECT_THAT(ran.err, HasSubstr(hidden));
    EXPECT_THAT(ran.err, HasSubstr(outOfReach));
    const auto answer = ran.json();
    EXPECT_TRUE(answer["problems"].empty()) << answer["problems"];
    const auto& ima = row(answer["keyrings"], ".ima");
    EXPECT_EQ(ima["files"], 1);
    for (const char* const member : {"serial", "keys", "keysWithoutFile", "filesWithoutKey"}) {
        EXPECT_TRUE(ima[member].is_null()) << member << ": " << ima[member];
    }
}

TEST_F(AgentVerbs, StatusTellsWhoMayNotSeeOfNoAgentAllTheSame) {
    const Unprivileged unprivileged;
    const Ran ran = ctl({"status", "--json"});
    EXPECT_EQ(ran.status, 4);
    EXPECT_THAT(ran.err, HasSubstr(hidden));
    EXPECT_THAT(ran.json()["problems"][0]["problem"].get<std::string>(), HasSubstr("no agent at"));
}

TEST_F(AgentVerbs, KeysAndFilesTellWhoMayNotSeeWhatCannotBeKnown) {
    const AgentProcess agent({});
    ready(agent);
    const Unprivileged unprivileged;
    for (const char* const verb : {"keys", "files"}) {
        const Ran all = ctl({verb});
        EXPECT_EQ(all.status, 4) << verb;
        EXPECT_THAT(all.err, HasSubstr(hidden)) << verb;
        EXPECT_THAT(all.err, HasSubstr(outOfReach)) << verb;
        const Ran one = ctl({verb, "ima"});
        EXPECT_EQ(one.status, 4) << verb;
        EXPECT_THAT(one.err, HasSubstr("only root can see .ima; ")) << verb;
    }
}

TEST_F(AgentVerbs, ResyncAndTraceTellWhoMayNotAskTheAgent) {
    const AgentProcess agent({});
    ready(agent);
    const Unprivileged unprivileged;
    for (const char* const verb : {"resync", "trace"}) {
        const Ran ran = ctl({verb});
        EXPECT_EQ(ran.status, 1) << verb;
        EXPECT_EQ(ran.err, "vestrelctl: " + outOfReach + "\n") << verb;
    }
}

TEST_F(AgentVerbs, ResyncAndTraceFailWithoutAnAgent) {
    for (const char* const verb : {"resync", "trace"}) {
        const Ran ran = ctl({verb});
        EXPECT_EQ(ran.status, 1);
        EXPECT_EQ(ran.out, "");
        EXPECT_THAT(ran.err, HasSubstr("no agent at"));
    }
}

TEST_F(AgentVerbs, ResyncHasTheAgentStartAnew) {
    const AgentProcess agent({.arguments = {"--trace", "5"}});
    ready(agent);
    EXPECT_EQ(ctl({"resync"}).status, 0);
    EXPECT_EQ(std::ranges::count(agent.errLines(), "IntegrityKeyringSm 5 handleInitialized: "), 2);
}

TEST_F(AgentVerbs, TraceShowsTheEventsOfTheAgent) {
    const AgentProcess agent({.arguments = {"--trace", "5"}});
    ready(agent);
    const Ran ran = ctl({"trace", "--json"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_THAT(ran.json()["trace"][0]["text"].get<std::string>(), HasSubstr("handleInitialized"));
    EXPECT_THAT(ctl({"trace"}).out, HasSubstr(" IntegrityKeyringSm 5 "));
}

TEST_F(AgentVerbs, TraceFollowsInLinesOfJson) {
    AgentProcess agent({.arguments = {"--trace", "5"}});
    ready(agent);
    std::FILE* const follower = popen(VESTREL_CTL " trace --follow --json 2>/dev/null", "re");
    ASSERT_NE(follower, nullptr);
    std::string line;
    for (int c = std::fgetc(follower); c != EOF && c != '\n'; c = std::fgetc(follower)) {
        line += static_cast<char>(c);
    }
    EXPECT_FALSE(nlohmann::json::parse(line)["trace"].empty());
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0);
    pclose(follower);
}

TEST_F(AgentVerbs, TraceFollowsUntilTheAgentEnds) {
    AgentProcess agent({.arguments = {"--trace", "5"}});
    ready(agent);
    std::FILE* const follower = popen(VESTREL_CTL " trace --follow 2>&1", "re");
    ASSERT_NE(follower, nullptr);
    std::array<char, 4096> line{};
    const auto sees = [&](const char* text) {
        while (std::fgets(line.data(), line.size(), follower) != nullptr) {
            if (std::string_view(line.data()).find(text) != std::string_view::npos) {
                return true;
            }
        }
        return false;
    };
    EXPECT_TRUE(sees("): .machine"))
        << "the keyring that start-up takes last"; // however the compiler spells it
    agent.signal(SIGHUP);
    EXPECT_TRUE(sees("handleDelete()")) << "what happened since";
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0);
    EXPECT_TRUE(sees("vestrelctl: the agent does not answer: "));
    const int status = pclose(follower);
    EXPECT_EQ(WEXITSTATUS(status), 1);
}

// Nothing happens that it could write, and the agent goes on.
TEST_F(AgentVerbs, TraceFollowsNoLongerThanItsReader) {
    const AgentProcess agent({.arguments = {"--trace", "5"}});
    ready(agent);
    const auto endOf = [](const std::string& trap) {
        return shell("{ { timeout 60 sh -c '" + trap +
                     "; exec " VESTREL_CTL
                     " trace --follow' 2>&3; echo $? >&3; } | head -n 1 >/dev/null; } 3>&1")
            .output;
    };
    EXPECT_EQ(endOf("trap - PIPE"), std::to_string(128 + SIGPIPE) + "\n");
    EXPECT_EQ(endOf("trap \"\" PIPE"), "vestrelctl: nobody reads the result any more\n1\n");
}

TEST_F(AgentVerbs, FailWhenTheirResultCannotBeWritten) {
    const AgentProcess agent({.arguments = {"--trace", "5"}});
    ready(agent);
    for (const std::string arguments :
         {"status", "keys", "files --json", "resync --json", "trace", "trace --follow"}) {
        const Ended ended = shell(VESTREL_CTL " " + arguments + " 2>&1 >/dev/full");
        EXPECT_EQ(ended.status, 1) << arguments;
        EXPECT_EQ(ended.output, "vestrelctl: the result could not be written\n") << arguments;
    }
}

TEST_F(AgentVerbs, ShowNamesOfAnyBytes) {
    fs::create_directories("/etc/keys/ima");
    const AgentProcess agent({});
    ready(agent);
    const std::string path = "/etc/keys/ima/\xff\\xfe";
    std::ofstream(path) << "no certificate";
    EXPECT_THAT(ctl({"files", ".ima"}).out, HasSubstr("/etc/keys/ima/\\xff\\xfe "));
    EXPECT_THAT(ctl({"files", ".ima", "--json"}).out,
                HasSubstr(R"("file":"/etc/keys/ima/\\xff\\x5cxfe")"));
}

TEST_F(AgentVerbs, DoNotBelieveWhateverAnswers) {
    const std::string deep = std::string(100000, '[') + "\n";
    for (const char* const answer : {"garbage\n", "[]\n", "{}\n", "", deep.c_str()}) {
        const Impostor impostor({answer});
        const Ran ran = ctl({"resync"});
        EXPECT_EQ(ran.status, 1) << answer;
        EXPECT_THAT(ran.err, HasSubstr("the agent does not answer: ")) << answer;
        fs::remove(agentSocket);
    }
}

// To every method at once, of an agent that has on record what is not there.
nlohmann::json agreedAnswer() {
    nlohmann::json all = nlohmann::json::parse(R"({
        "agent": {"pid": 1, "version": "1", "startTime": "t"},
        "keyringStateMachine": {"watcherInfos": {".ima": {"readFd": 3, "inotifyFd": 4}}},
        "syslogStateMachine": {"socketFd": 5},
        "counters": {"kernelMessages": {"datagrams": 0, "matches": 0},
                     "log": {"messages": 0, "suppressed": 0}},
        "drift": {"recoveries": 0, "lastRecoveryTime": "", "differences": {"1": "a"}},
        "differences": ["a"],
        "events": [{"time": "t", "handle": "h", "level": 1, "text": "f"}],
        "last": 1, "more": false
})");
    for (const char* const name :
         {".ima", ".secondary_trusted_keys", ".builtin_trusted_keys", ".machine"}) {
        all["keyring"][name] = nlohmann::json::parse(R"({"key": {}, "fileToDescription": {}})");
        all["counters"]["keyrings"][name] = nlohmann::json::parse(
            R"({"loads": 0, "refusals": 0, "unlinks": 0, "notifications": 0,
                "notificationsLost": 0, "overflows": 0, "upsets": 0,
                "lastFailureTime": "", "lastFailure": "", "refused": {}})");
    }
    all["keyring"][".ima"] = nlohmann::json::parse(
        R"({"key": {"1": {"serial": 1, "description": "lost", "type": "asymmetric"}},
            "fileToDescription": {"lost": "lost"}})");
    all["counters"]["keyrings"][".ima"]["refused"]["lost"] = {{"reason", "why"}, {"number", 1}};
    return {{"parameters", all}};
}

// What the verb makes of that answer, to whatever it asks.
Ran ctlGiven(const std::string& verb, const nlohmann::json& answer) {
    const Impostor impostor({answer.dump() + "\n"});
    Ran ran = ctl({verb, "--json"});
    fs::remove(agentSocket);
    return ran;
}

void isNotAsAgreed(const std::string& verb, const nlohmann::json& answer, const std::string& what) {
    const Ran ran = ctlGiven(verb, answer);
    EXPECT_EQ(ran.status, 1) << verb;
    EXPECT_EQ(ran.out, "") << verb;
    EXPECT_THAT(ran.err, testing::StartsWith("vestrelctl: the agent does not answer: not as agreed "
                                             "at /run/vestrel/agent.sock: " +
                                             what))
        << verb;
}

// A member that a verb reads.
struct Needed {
    const char* verb;
    const char* pointer; // below "parameters"
    bool isOptional = false;
};

const std::vector<Needed> needed{
    {"resync", "/differences"},
    {"resync", "/differences/0", true},
    {"trace", "/events"},
    {"trace", "/events/0", true},
    {"trace", "/events/0/time"},
    {"trace", "/events/0/handle"},
    {"trace", "/events/0/level"},
    {"trace", "/events/0/text"},
    {"trace", "/last"},
    {"trace", "/more"},
    {"status", "/agent"},
    {"status", "/agent/pid"},
    {"status", "/agent/version"},
    {"status", "/agent/startTime"},
    {"status", "/keyringStateMachine"},
    {"status", "/keyringStateMachine/watcherInfos"},
    {"status", "/keyringStateMachine/watcherInfos/.ima", true},
    {"status", "/keyringStateMachine/watcherInfos/.ima/readFd"},
    {"status", "/keyringStateMachine/watcherInfos/.ima/inotifyFd"},
    {"status", "/syslogStateMachine"},
    {"status", "/syslogStateMachine/socketFd"},
    {"status", "/counters"},
    {"status", "/counters/kernelMessages"},
    {"status", "/counters/kernelMessages/datagrams"},
    {"status", "/counters/kernelMessages/matches"},
    {"status", "/counters/log"},
    {"status", "/counters/log/messages"},
    {"status", "/counters/log/suppressed"},
    {"status", "/counters/keyrings"},
    {"status", "/counters/keyrings/.machine"},
    {"status", "/counters/keyrings/.machine/loads"},
    {"status", "/counters/keyrings/.machine/refusals"},
    {"status", "/counters/keyrings/.machine/unlinks"},
    {"status", "/counters/keyrings/.machine/notifications"},
    {"status", "/counters/keyrings/.machine/notificationsLost"},
    {"status", "/counters/keyrings/.machine/overflows"},
    {"status", "/counters/keyrings/.machine/upsets"},
    {"status", "/counters/keyrings/.machine/lastFailureTime"},
    {"status", "/counters/keyrings/.machine/lastFailure"},
    {"status", "/drift"},
    {"status", "/drift/recoveries"},
    {"status", "/drift/lastRecoveryTime"},
    {"status", "/drift/differences"},
    {"status", "/drift/differences/1", true},
    {"keys", "/keyring"},
    {"keys", "/keyring/.machine"},
    {"keys", "/keyring/.ima/key"},
    {"keys", "/keyring/.ima/key/1", true},
    {"keys", "/keyring/.ima/key/1/serial"},
    {"keys", "/keyring/.ima/key/1/description"},
    {"keys", "/keyring/.ima/key/1/type"},
    {"files", "/keyring"},
    {"files", "/keyring/.machine"},
    {"files", "/keyring/.ima/fileToDescription"},
    {"files", "/keyring/.ima/fileToDescription/lost", true},
    {"files", "/counters"},
    {"files", "/counters/keyrings"},
    {"files", "/counters/keyrings/.ima"},
    {"files", "/counters/keyrings/.ima/refused"},
    {"files", "/counters/keyrings/.ima/refused/lost", true},
    {"files", "/counters/keyrings/.ima/refused/lost/reason"},
    {"files", "/counters/keyrings/.ima/refused/lost/number"},
};

TEST_F(AgentVerbs, TakeAnAnswerThatIsAsAgreed) {
    for (const char* const verb : {"resync", "trace", "status", "keys", "files"}) {
        const Ran ran = ctlGiven(verb, agreedAnswer());
        EXPECT_EQ(ran.status, std::string_view(verb) == "status" ? 6 : 0) << verb << ran.err;
        EXPECT_EQ(ran.err, "") << verb;
    }
}

TEST_F(AgentVerbs, NameWhatIsMissingInAnAnswer) {
    for (const Needed& member : needed) {
        if (!member.isOptional) {
            const nlohmann::json::json_pointer pointer(std::string("/parameters") + member.pointer);
            nlohmann::json answer = agreedAnswer();
            answer.at(pointer.parent_pointer()).erase(pointer.back());
            isNotAsAgreed(member.verb, answer, "\"" + pointer.back() + "\" is missing");
        }
    }
}

TEST_F(AgentVerbs, NameWhatIsOfAnotherTypeInAnAnswer) {
    for (const Needed& member : needed) {
        const nlohmann::json::json_pointer pointer(std::string("/parameters") + member.pointer);
        nlohmann::json answer = agreedAnswer();
        nlohmann::json& value = answer.at(pointer);
        value = value.is_string() ? nlohmann::json(1) : nlohmann::json("x");
        const bool isElement = pointer.back() == "0" || pointer.back() == "1";
        isNotAsAgreed(member.verb, answer, isElement ? "\"" : "\"" + pointer.back() + "\" is not ");
    }
}

TEST_F(AgentVerbs, NameANumberThatIsNone) {
    struct Row {
        const char* verb;
        const char* pointer;
        nlohmann::json number;
        const char* what;
    };

    for (const Row& row :
         {Row{"keys", "/keyring/.ima/key/1/serial", 2147483648U, "\"serial\" is out of range"},
          Row{"keys", "/keyring/.ima/key/1/serial", 1.5, "\"serial\" is not a whole number"},
          Row{"trace", "/last", -1, "\"last\" is out of range"}}) {
        nlohmann::json answer = agreedAnswer();
        answer["parameters"].at(nlohmann::json::json_pointer(row.pointer)) = row.number;
        isNotAsAgreed(row.verb, answer, row.what);
    }
}

TEST_F(AgentVerbs, DoNotBelieveAnAnswerWithoutMembers) {
    for (const char* const parameters : {"{}", "[]", "null", "1", "\"x\""}) {
        for (const char* const verb : {"resync", "trace", "status", "keys", "files"}) {
            isNotAsAgreed(verb, {{"parameters", nlohmann::json::parse(parameters)}}, "\"");
        }
    }
}

TEST_F(AgentVerbs, TraceDoesNotAskForeverForWhatDoesNotCome) {
    nlohmann::json answer = agreedAnswer();
    answer["parameters"]["more"] = true;
    isNotAsAgreed("trace", answer, "there are more events, but none behind number 1");
}

TEST_F(AgentVerbs, TraceShowsWhatAnAgentHadThatTracesFasterThanItIsAsked) {
    std::vector<std::string> answers;
    for (int i = 1; i <= 100; ++i) {
        nlohmann::json answer = agreedAnswer();
        answer["parameters"]["more"] = true;
        answer["parameters"]["last"] = i;
        answers.push_back(answer.dump() + "\n");
    }
    const Impostor impostor(answers);
    const Ran ran = ctl({"trace", "--json"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.json()["trace"].size(), 16U);
}

TEST_F(AgentVerbs, DoNotWaitForeverForAnAnswer) {
    const Zell::OwnedFd silent(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    Impostor::listens(silent.get());
    const Ran ran = ctl({"resync"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.err, "vestrelctl: the agent does not answer: nothing came within 10 seconds\n");
}

// An agent that has on record what is not there; on the real kernel that is over in a moment.
TEST_F(AgentVerbs, KeysAndFilesShowWhatIsGone) {
    for (const char* const verb : {"keys", "files"}) {
        const Ran ran = ctlGiven(verb, agreedAnswer());
        EXPECT_EQ(ran.status, 0) << ran.err;
        EXPECT_EQ(row(ran.json()[verb], ".ima")["description"], "lost");
        EXPECT_EQ(row(ran.json()[verb], ".ima")["state"], "gone");
    }
}

// The first agent was given the file to load, the other was not: it was there at its start.
TEST_F(AgentVerbs, FilesThatAreNoCertificateHaveAStateOfTheirOwn) {
    const std::string path = "/etc/keys/ima/cut";
    fs::create_directories("/etc/keys/ima");
    std::ofstream(path) << "0";
    nlohmann::json answer = agreedAnswer();
    answer["parameters"]["keyring"][".ima"]["fileToDescription"].clear();
    answer["parameters"]["counters"]["keyrings"][".ima"]["refused"][path] = {
        {"reason", "Bad message"}, {"number", 1}};
    const auto refused = ctlGiven("files", answer).json().at("files").at(0);
    EXPECT_EQ(refused["state"], "no certificate");
    EXPECT_EQ(refused["reason"], "Bad message");
    const AgentProcess agent({});
    ready(agent);
    const auto file = ctl({"files", "--json"}).json().at("files").at(0);
    EXPECT_EQ(file["state"], "no certificate");
    EXPECT_EQ(file["reason"], "");
    const Ran status = ctl({"status", "--json"});
    EXPECT_EQ(status.status, 6);
    EXPECT_EQ(row(status.json()["keyrings"], ".ima")["filesWithoutKey"], 1);
    EXPECT_THAT(status.json()["problems"].dump(),
                HasSubstr("\"" + path + " holds no readable certificate\""));
}

TEST_F(AgentVerbs, NameTheErrorOfTheAgent) {
    const Impostor impostor({"{\"error\":\"MethodNotFound\",\"parameters\":{}}\n"});
    const Ran ran = ctl({"resync"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_THAT(ran.err, HasSubstr("the agent refuses Resync: \"MethodNotFound\""));
}

} // namespace

} // namespace Vestrel::Tests
