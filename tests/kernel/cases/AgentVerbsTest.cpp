// SPDX-License-Identifier: Apache-2.0
// vestrelctl status, keys, files and resync beside a running agent with real keyrings.
#include "tests/ctl/Ran.h"
#include "tests/kernel/cases/KernelTest.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace Vestrel::Tests {
namespace {

using Rows = nlohmann::json;

class AgentVerbs : public AgentTest {
protected:
    static Rows rows(const std::vector<std::string>& words, const std::string& name) {
        std::vector<std::string> all = words;
        all.emplace_back("--json");
        return ctl(all).json().at(name);
    }

    // The row with that member, or null.
    static Rows row(const Rows& rows, const std::string& member, const Rows& value) {
        const auto found =
            std::ranges::find_if(rows, [&](const Rows& each) { return each[member] == value; });
        return found == rows.end() ? Rows() : *found;
    }

    static Rows keyringRow(const std::string& name) {
        return row(rows({"status"}, "keyrings"), "keyring", name);
    }
};

TEST_F(AgentVerbs, StatusOfAHealthyMachineEndsWithStatusZero) {
    start();
    write(file("signer"), certificate("signer"));
    recorded("signer");
    const Ran ran = ctl({"status"});
    EXPECT_EQ(ran.status, 0) << ran.out << ran.err;
    EXPECT_EQ(ran.err, "");
    const Rows ima = keyringRow(".ima");
    EXPECT_EQ(ima["serial"], Keyring::named(".ima").serial());
    EXPECT_EQ(ima["directory"], directory());
    EXPECT_EQ(ima["watched"], "both");
    EXPECT_EQ(ima["keys"], 1);
    EXPECT_EQ(ima["files"], 1);
    EXPECT_EQ(ima["keysWithoutFile"], 0);
    EXPECT_EQ(ima["filesWithoutKey"], 0);
    EXPECT_EQ(ima["lastFailure"], "");
    EXPECT_GT(keyringRow(".builtin_trusted_keys")["keysWithoutFile"], 0) << "that is no problem";
    EXPECT_EQ(row(rows({"status"}, "counters"), "keyring", ".ima")["loads"], 1);
}

TEST_F(AgentVerbs, StatusNamesARefusedFileAndIsNotHealthy) {
    start();
    write(file("stranger"), unknownAuthority().issue({}));
    EXPECT_TRUE(eventually([&] { return messages().size() == 1; }));
    const Ran ran = ctl({"status"});
    EXPECT_EQ(ran.status, 6);
    EXPECT_NE(ran.out.find(file("stranger") + " has no key in .ima: Required key not available"),
              std::string::npos)
        << ran.out;
    const Rows ima = keyringRow(".ima");
    EXPECT_EQ(ima["filesWithoutKey"], 1);
    EXPECT_EQ(ima["lastFailure"], file("stranger") + ": Required key not available");
    EXPECT_NE(ima["lastFailureTime"], "");
}

TEST_F(AgentVerbs, StatusNamesWhatIsNoCertificateWhoeverTriedIt) {
    start();
    Bytes cut = certificate("cut");
    cut.resize(100);
    write(file("cut"), cut);
    write(file("empty"), {});
    EXPECT_TRUE(eventually([&] { return messages().size() == 2; }));
    const auto expect = [&](const std::string& name, const std::string& reason) {
        const Ran ran = ctl({"status"});
        EXPECT_EQ(ran.status, 6);
        EXPECT_NE(ran.out.find(file(name) + " holds no readable certificate" +
                               (reason.empty() ? "\n" : ": " + reason + "\n")),
                  std::string::npos)
            << ran.out;
        const Rows shown = row(rows({"files"}, "files"), "file", file(name));
        EXPECT_EQ(shown["state"], "no certificate");
        EXPECT_EQ(shown["reason"], reason);
    };
    expect("cut", "Bad message");
    expect("empty", "Invalid argument");
    EXPECT_EQ(keyringRow(".ima")["filesWithoutKey"], 2);
    stop();
    start();
    expect("cut", "");
    expect("empty", "");
    EXPECT_EQ(keyringRow(".ima")["filesWithoutKey"], 2);
}

// A key of that description is there, of another file.
TEST_F(AgentVerbs, StatusNamesARefusedFileThatHasAKey) {
    start();
    write(file("signer"), certificate("signer"));
    recorded("signer");
    Bytes changed = certificate("signer");
    changed.back() ^= 1U;
    write(file("twin"), changed);
    EXPECT_TRUE(eventually([&] { return messages().size() == 1; }));
    const Ran ran = ctl({"status"});
    EXPECT_EQ(ran.status, 6);
    EXPECT_NE(ran.out.find(file("twin") + " was refused: "), std::string::npos) << ran.out;
    EXPECT_EQ(keyringRow(".ima")["filesWithoutKey"], 0);
}

TEST_F(AgentVerbs, CheckSaysWhatTheAgentSaysOfARefusal) {
    start();
    CertificatePlan plan;
    plan.notAfter = "210101000000Z";
    write(file("stranger"), unknownAuthority().issue(plan));
    EXPECT_TRUE(eventually([&] { return agent().explanations().size() == 1; }));
    std::string line = ctl({"check", ".ima", file("stranger")}).out;
    line.pop_back(); // its end
    EXPECT_NE(line.find("expired on 2021-01-01"), std::string::npos) << line;
    line.replace(0, file("stranger").size(),
                 "Certificate " + file("stranger") + " for keyring (.ima)");
    EXPECT_EQ(agent().explanations().at(0), line + ".");
}

TEST_F(AgentVerbs, StatusWithoutAnAgentShowsWhatKernelAndFilesTell) {
    start();
    write(file("signer"), certificate("signer"));
    recorded("signer");
    stop();
    const Ran ran = ctl({"status"});
    EXPECT_EQ(ran.status, 6);
    EXPECT_NE(ran.out.find("cannot be known"), std::string::npos);
    const Rows ima = keyringRow(".ima");
    EXPECT_EQ(ima["keys"], 1);
    EXPECT_EQ(ima["files"], 1);
    EXPECT_EQ(ima["watched"], "unknown");
}

TEST_F(AgentVerbs, KeysNamesTheFilesOfEachKeyAndFilesTheKeyOfEachFile) {
    start();
    write(file("a"), certificate("twin", 1));
    const key_serial_t key = recorded("twin");
    write(file("b"), certificate("twin", 1)); // the same certificate: a new serial
    EXPECT_TRUE(
        eventually([&] { return Keyring::named(".ima").keyOf(description("twin")) != key; }));
    const key_serial_t twin = recorded("twin");
    Keyring::named(".ima").tryAdd(certificate("alone"));
    recorded("alone");
    const Rows keys = rows({"keys", "ima"}, "keys");
    EXPECT_EQ(keys.size(), 2U);
    EXPECT_EQ(row(keys, "description", description("twin"))["files"], (Rows{file("a"), file("b")}));
    EXPECT_EQ(row(keys, "description", description("twin"))["serial"], twin);
    EXPECT_EQ(row(keys, "description", description("twin"))["state"], "in step");
    EXPECT_EQ(row(keys, "description", description("alone"))["files"], Rows::array());
    const Rows files = rows({"files", "ima"}, "files");
    EXPECT_EQ(files.size(), 2U);
    EXPECT_EQ(row(files, "file", file("a"))["key"], twin);
    EXPECT_EQ(row(files, "file", file("b"))["state"], "in step");
}

TEST_F(AgentVerbs, KeysAndFilesShowWhatIsNotOnRecordOrGone) {
    start();
    write(file("kept"), certificate("kept"));
    recorded("kept");
    agent().signal(SIGHUP); // the refusal before it is forgotten, nothing else
    agent().waitReady(2);
    write("/etc/keys/elsewhere", certificate("linked"));
    std::filesystem::create_hard_link("/etc/keys/elsewhere", file("linked"));
    EXPECT_EQ(row(rows({"files"}, "files"), "file", file("linked"))["state"], "not on record");
    write(file("stranger"), unknownAuthority().issue({}));
    EXPECT_TRUE(eventually([&] { return messages().size() == 1; }));
    const Rows refused = row(rows({"files"}, "files"), "file", file("stranger"));
    EXPECT_EQ(refused["state"], "refused");
    EXPECT_EQ(refused["reason"], "Required key not available");
    EXPECT_EQ(refused["key"], Rows());
}

TEST_F(AgentVerbs, FilesOfAnyNameAreInStep) {
    start();
    for (const char* const name : {"\xff.der", "\\xff.der"}) {
        write(file(name), certificate("named"));
        recorded("named");
    }
    fence();
    const Rows files = rows({"files", "ima"}, "files");
    ASSERT_EQ(files.size(), 2U) << files.dump();
    for (const char* const name : {"\\xff.der", "\\x5cxff.der"}) {
        EXPECT_EQ(row(files, "file", file(name))["state"], "in step") << name;
    }
    EXPECT_EQ(ctl({"status"}).status, 0) << ctl({"status"}).out;
}

TEST_F(AgentVerbs, ResyncShowsWhatHadDriftedApartAndPutsItRight) {
    start();
    write("/etc/keys/elsewhere", certificate("linked"));
    std::filesystem::create_hard_link("/etc/keys/elsewhere", file("linked"));
    const Ran ran = ctl({"resync"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "had drifted apart: .ima: " + file("linked") + " is not on record\n");
    EXPECT_TRUE(holdsOnly({"linked"}));
    EXPECT_EQ(ctl({"resync"}).out, "");
    EXPECT_EQ(ctl({"status"}).status, 0);
}

} // namespace
} // namespace Vestrel::Tests
