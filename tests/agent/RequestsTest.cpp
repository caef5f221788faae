// SPDX-License-Identifier: Apache-2.0
// Tests what each method of the status socket answers.
#include "agent/Requests.h"

#include "platform/brisklog/Brisklog.h"
#include "tests/keyring/CertificateDirectories.h"

namespace Vestrel::Tests {

namespace {

class RequestsTest : public CertificateDirectories {
protected:
    RequestsTest() : syslog_(integritySyslogSmFactory()) { start(); }

    Json ask(const std::string& request) const { return Json::parse(requests_.answer(request)); }

    std::string errorOf(const std::string& request) const {
        return ask(request).value("error", "");
    }

    Orvo::Ptr<IntegritySyslogSm> syslog_;
    DriftRecord drift_;
    Differences differed_;
    int resyncs_ = 0;
    const Requests requests_{{[this]() -> IntegrityKeyringSm& { return *sm; },
                              [this]() -> IntegritySyslogSm& { return *syslog_; },
                              [this]() -> const DriftRecord& { return drift_; },
                              [this] {
                                  ++resyncs_;
                                  return differed_;
                              }}};
};

TEST_F(RequestsTest, StatusShowsAgentStateMachinesCountersAndDrift) {
    drift_.differences = {"a", "b"};
    drift_.recoveries = 3;
    const Json shown = ask(R"({"method":"Status"})")["parameters"];
    EXPECT_EQ(shown["agent"]["pid"], getpid());
    EXPECT_EQ(shown["keyringStateMachine"]["watcherInfos"][".ima"]["keyringId"],
              keys.serialOf(".ima"));
    EXPECT_EQ(shown["syslogStateMachine"]["socketFd"], syslog_->socketFd());
    EXPECT_EQ(shown["syslogStateMachine"]["fileDescriptor"]["name"], "IntegrityKernelSyslog");
    EXPECT_EQ(shown["counters"]["keyrings"].size(), 4U);
    EXPECT_TRUE(shown["counters"]["keyrings"][".ima"]["loads"].is_number());
    EXPECT_TRUE(shown["counters"]["kernelMessages"]["datagrams"].is_number());
    EXPECT_TRUE(shown["counters"]["log"]["suppressed"].is_number());
    EXPECT_EQ(shown["drift"]["recoveries"], 3);
    EXPECT_EQ(shown["drift"]["differences"].dump(), R"({"1":"a","2":"b"})");
}

TEST_F(RequestsTest, KeyringsShowsKeysAndFilesOfAllOrOfOne) {
    const std::string path = put("signer", "first");
    dispatch();
    const Json all = ask(R"({"method":"Keyrings"})")["parameters"]["keyring"];
    EXPECT_EQ(all.size(), 4U);
    EXPECT_EQ(all[".ima"]["fileToDescription"][path], described("first"));
    const Json one =
        ask(R"({"method":"Keyrings","parameters":{"keyring":".ima"}})")["parameters"]["keyring"];
    EXPECT_EQ(one.size(), 1U);
    EXPECT_EQ(one[".ima"], all[".ima"]);
    EXPECT_EQ(one[".ima"]["key"].size(), 1U);
}

TEST_F(RequestsTest, ResyncRebuildsAndTellsWhatDiffered) {
    differed_ = {"x", "\xff"};
    EXPECT_EQ(ask(R"({"method":"Resync"})").dump(),
              R"({"parameters":{"differences":["x","\\xff"]}})");
    EXPECT_EQ(resyncs_, 1);
}

TEST_F(RequestsTest, KeyringsShowsAnyNameThatAFileMayHave) {
    keyColl()->fileToDescriptionIs("/\xff", "\xfe");
    const Json shown = ask(R"({"method":"Keyrings"})")["parameters"]["keyring"][".ima"];
    EXPECT_EQ(shown["fileToDescription"].dump(), R"({"/\\xff":"\\xfe"})");
}

TEST_F(RequestsTest, TraceGivesTheEventsBehindASequenceNumber) {
    Brisklog::eventsDelAll();
    Brisklog::eventIs(1, "H", "f()", {"one"});
    Brisklog::eventIs(1, "H", "f()", {"two"});
    const Json all = ask(R"({"method":"Trace"})")["parameters"];
    ASSERT_EQ(all["events"].size(), 2U);
    EXPECT_EQ(all["events"][1]["text"], "f(): two");
    EXPECT_EQ(all["last"], all["events"][1]["sequence"]);
    EXPECT_FALSE(all["more"]);
    const std::string behind = all["events"][0]["sequence"].dump();
    const Json rest = ask(R"({"method":"Trace","parameters":{"after":)" + behind + "}}");
    ASSERT_EQ(rest["parameters"]["events"].size(), 1U);
    EXPECT_EQ(rest["parameters"]["events"][0]["text"], "f(): two");
}

TEST_F(RequestsTest, TraceGivesAFullRingInPieces) {
    Brisklog::eventsDelAll();
    for (int i = 0; i < 250; ++i) {
        Brisklog::eventIs(1, "H", "f()", {std::string(4096, '\1')});
    }
    std::size_t events = 0;
    std::string after = "0";
    Json piece;
    do {
        const std::string reply =
            requests_.answer(R"({"method":"Trace","parameters":{"after":)" + after + "}}");
        EXPECT_LE(reply.size(), Requests::maxReply);
        piece = Json::parse(reply)["parameters"];
        events += piece["events"].size();
        after = piece["last"].dump();
    } while (piece["more"]);
    EXPECT_EQ(events, 250U);
}

TEST_F(RequestsTest, RefusesWhatIsNoRequest) {
    for (const char* const request :
         {"", "x", "1", "[]", "\"Status\"", "{}", "{\"method\":1}", "{\"method\":\"Status\"",
          "{\"method\":\"\xff\"}", R"({"method":"Status","parameters":[]})",
          R"({"method":"Status","parameters":null})"}) {
        EXPECT_EQ(errorOf(request), "InvalidRequest") << request;
    }
}

TEST_F(RequestsTest, RefusesDeepNesting) {
    const auto nested = [](std::size_t levels) {
        return R"({"method":"Status","parameters":{"a":)" + std::string(levels, '[') +
               std::string(levels, ']') + "}}";
    };
    EXPECT_EQ(errorOf(std::string(60000, '[')), "InvalidRequest");
    EXPECT_EQ(errorOf(nested(30000)), "InvalidRequest");
    EXPECT_EQ(errorOf(nested(8)), "InvalidRequest");
    EXPECT_EQ(errorOf(nested(4)), "InvalidParameter");
}

TEST_F(RequestsTest, NamesAnUnknownMethodOrParameter) {
    EXPECT_EQ(ask(R"({"method":"Reboot"})").dump(),
              R"({"error":"MethodNotFound","parameters":{"method":"Reboot"}})");
    EXPECT_EQ(ask(R"({"method":"Status","parameters":{"colour":1}})").dump(),
              R"({"error":"InvalidParameter","parameters":{"parameter":"colour"}})");
    for (const char* const request : {R"({"method":"Keyrings","parameters":{"keyring":".none"}})",
                                      R"({"method":"Keyrings","parameters":{"keyring":1}})",
                                      R"({"method":"Trace","parameters":{"after":-1}})",
                                      R"({"method":"Trace","parameters":{"after":"1"}})",
                                      R"({"method":"Resync","parameters":{"now":true}})"}) {
        EXPECT_EQ(errorOf(request), "InvalidParameter") << request;
    }
    EXPECT_EQ(resyncs_, 0);
}

TEST_F(RequestsTest, RefusesAnAnswerThatWouldBeTooLarge) {
    const std::string description(Requests::maxReply / 1000, 'k');
    for (int i = 0; i < 1000; ++i) {
        keyColl()->keyIs({i + 1, description, "asymmetric"});
    }
    const std::string limit = std::to_string(Requests::maxReply);
    EXPECT_EQ(ask(R"({"method":"Keyrings"})").dump(),
              R"({"error":"ReplyTooLarge","parameters":{"limit":)" + limit + "}}");
    EXPECT_EQ(errorOf(R"({"method":"Status"})"), "");
}

} // namespace

} // namespace Vestrel::Tests
