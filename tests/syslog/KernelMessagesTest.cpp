// SPDX-License-Identifier: Apache-2.0
// Tests of the messages that kernel lines become, and of the lines that become none.
#include "platform/zell/LogFacility.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/syslog/SyslogTest.h"

namespace Vestrel::Tests {

namespace {

using namespace std::string_literals;

class KernelMessages : public SyslogTest {
protected:
    KernelMessages() { start(); }

    Texts raisedBy(std::string_view line) {
        clear();
        sm->processKernelMsg(line);
        EXPECT_EQ(traces, Texts{"5 processKernelMsg: "}) << line;
        return messages;
    }

    // The real line with one text in place of another.
    static std::string with(std::string_view old, std::string_view replacement) {
        std::string line(realLine);
        const std::size_t place = line.find(old);
        EXPECT_NE(place, std::string::npos) << old;
        return line.replace(place, old.size(), replacement);
    }
};

const Texts nothing;

TEST_F(KernelMessages, NameTypeCauseFileAndCommandInThisOrder) {
    EXPECT_EQ(raisedBy(R"(kernel: [   42.767325][  T312] audit: type=1800 audit(1.1:2): pid=312 )"
                       R"(uid=0 auid=0 ses=1 op=appraise_data cause=invalid-hash comm="bash" )"
                       R"(name="/usr/bin/tool" dev="sda1" ino=12 res=0 errno=0)"),
              Texts{"VESTREL_INTEGRITY: Integrity error of type AUDIT_INTEGRITY_DATA "
                    "(invalid-hash), for file /usr/bin/tool, invoked by bash"});
}

TEST_F(KernelMessages, HandTheFourArgumentsToTheLog) {
    Texts arguments;
    std::string name;
    Zell::LogFacility::sinkIs([&](const Zell::LogMessage& message) {
        name = message.descriptor.name;
        for (const Orvo::String& argument : message.arguments) {
            arguments.emplace_back(argument.view());
        }
    });
    sm->processKernelMsg(realLine);
    EXPECT_EQ(name, "VESTREL_INTEGRITY");
    EXPECT_EQ(arguments, (Texts{"AUDIT_INTEGRITY_DATA", "missing-hash", "/t/nohash", "vmt"}));
}

TEST_F(KernelMessages, ComeFromEveryCauseThatTheKernelGives) {
    for (const char* const cause :
         {"missing-hash", "invalid-hash", "IMA-signature-required", "invalid-signature"}) {
        EXPECT_EQ(raisedBy(with("missing-hash", cause)),
                  Texts{integrityMessage(cause, "/t/nohash", "vmt")});
    }
}

TEST_F(KernelMessages, ComeFromALineThatALogDaemonHasPrefixed) {
    EXPECT_EQ(raisedBy("<5>Nov 20 14:13:45 host " + std::string(realLine)),
              Texts{integrityMessage("missing-hash", "/t/nohash", "vmt")});
    EXPECT_EQ(raisedBy("\n" + std::string(realLine)).size(), 1U);
}

TEST_F(KernelMessages, ComeFromARecordWhoseStampIsTight) {
    EXPECT_EQ(raisedBy(with("[    2.647055][   T10]", "[12345.647055][T99999]")).size(), 1U);
}

TEST_F(KernelMessages, TakeACauseOfSeveralWordsWhole) {
    EXPECT_EQ(raisedBy(with("missing-hash", "no key  for this")),
              Texts{integrityMessage("no key  for this", "/t/nohash", "vmt")});
}

TEST_F(KernelMessages, TakeACauseUpToTheLastCommand) {
    EXPECT_EQ(raisedBy(with("missing-hash", "x comm=\"a\" name=\"b\" y")),
              Texts{integrityMessage("x comm=\"a\" name=\"b\" y", "/t/nohash", "vmt")});
}

TEST_F(KernelMessages, KeepBlanksInNames) {
    EXPECT_EQ(raisedBy(with("\"/t/nohash\"", "\" a b \"")),
              Texts{integrityMessage("missing-hash", " a b ", "vmt")});
}

TEST_F(KernelMessages, AreOneForEachRecord) {
    clear();
    sm->processKernelMsg(realLine);
    sm->processKernelMsg(realLine);
    EXPECT_EQ(messages.size(), 2U);
}

TEST_F(KernelMessages, AreNotRaisedForOtherOperations) {
    EXPECT_EQ(raisedBy(with("appraise_data", "appraise_metadata")), nothing);
    EXPECT_EQ(raisedBy(with("appraise_data", "collect_data")), nothing);
}

TEST_F(KernelMessages, AreNotRaisedForOtherTypes) {
    EXPECT_EQ(raisedBy(with("type=1800", "type=1801")), nothing);
    EXPECT_EQ(raisedBy(with("type=1800", "type=18000")), nothing);
    EXPECT_EQ(raisedBy(with("type=1800", "type=180")), nothing);
}

TEST_F(KernelMessages, AreNotRaisedWhenAnythingFollowsTheErrno) {
    for (const char* const more : {"\n", " ", "\r\n", ".", " more", "\t", "x"}) {
        EXPECT_EQ(raisedBy(std::string(realLine) + more), nothing) << more;
    }
    EXPECT_EQ(raisedBy(std::string(realLine) + "7").size(), 1U) << "another digit";
}

TEST_F(KernelMessages, AreNotRaisedForNamesInHex) {
    EXPECT_EQ(raisedBy(with("\"/t/nohash\"", "2F742F7769746820626C616E6B")), nothing);
    EXPECT_EQ(raisedBy(with("\"vmt\"", "6120622063")), nothing);
}

TEST_F(KernelMessages, AreNotRaisedForACutRecord) {
    for (std::size_t size = 0; size < realLine.size(); ++size) {
        EXPECT_EQ(raisedBy(realLine.substr(0, size)), nothing) << size;
    }
    const std::string line = with("/t/nohash", "/" + std::string(900, 'p'));
    EXPECT_EQ(raisedBy(line).size(), 1U);
    EXPECT_EQ(raisedBy(line.substr(0, 973 + 41)), nothing) << "where the kernel cuts";
}

TEST_F(KernelMessages, AreNotRaisedWithoutTheTagOrTheBrackets) {
    EXPECT_EQ(raisedBy(with("kernel: ", "")), nothing);
    EXPECT_EQ(raisedBy(with("kernel:", "Kernel:")), nothing);
    EXPECT_EQ(raisedBy(with("[    2.647055]", "")), nothing);
    EXPECT_EQ(raisedBy(with("[   T10]", "")), nothing);
    EXPECT_EQ(raisedBy(with("[   T10]", "[   C10]")), nothing);
    EXPECT_EQ(raisedBy(with("] audit", "]audit")), nothing);
}

TEST_F(KernelMessages, AreNotRaisedWhenAFieldIsMissingOrEmpty) {
    for (const char* const field :
         {"pid=115 ", "uid=0 ", "auid=4294967295 ", "ses=4294967295 ", "op=appraise_data ",
          "cause=missing-hash ", "comm=\"vmt\" ", "name=\"/t/nohash\" ", "dev=\"rootfs\" ",
          "ino=392 ", "res=0 ", " errno=0"}) {
        EXPECT_EQ(raisedBy(with(field, "")), nothing) << field;
    }
    for (const char* const value : {"115", "missing-hash", "vmt", "/t/nohash", "rootfs", "392"}) {
        EXPECT_EQ(raisedBy(with(value, "")), nothing) << value;
    }
}

TEST_F(KernelMessages, AreNotRaisedForOrdinaryLines) {
    for (const std::string_view line : ordinaryLines()) {
        const bool isRecord = line.find("op=appraise_data ") != std::string_view::npos &&
                              line.find("comm=\"") != std::string_view::npos;
        EXPECT_EQ(raisedBy(line).size(), isRecord ? 1U : 0U) << line;
    }
    EXPECT_EQ(raisedBy(""), nothing);
}

TEST_F(KernelMessages, AreTracedOnEntryOnly) {
    EXPECT_EQ(raisedBy(realLine).size(), 1U);
    EXPECT_EQ(raisedBy("no record"), nothing);
}

} // namespace

} // namespace Vestrel::Tests
