// SPDX-License-Identifier: Apache-2.0
// check, install, remove and plan beside the model of the key service and an agent's answers. What
// takes a kernel that judges certificates, or a real agent, is in the cases of tests/kernel.
#include "ctl/DirectoryFile.h"
#include "keymodel/CertificateDescription.h"
#include "tests/ctl/Impostor.h"
#include "tests/ctl/Ran.h"
#include "tests/fakes/KeyService.h"
#include "tests/support/CertificateMaker.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <system_error>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

const std::string directory = "/etc/keys/ima";
const std::string placed = directory + "/good";
const std::string cause = "Key was rejected by service";
const std::string tooLong = "3600"; // for a test to wait it out
const std::string none = R"({"parameters":{}})"
                         "\n";

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class CtlFiles : public testing::Test {
protected:
    CtlFiles() {
        fs::create_directories(directory);
        keys_.keyring(".ima");
        keys_.keyring(".secondary_trusted_keys");
        keys_.keyring(".builtin_trusted_keys", readOnlyKeyring);
        keys_.keyring(".machine", readOnlyKeyring);
        const Bytes ca = authority_.certificate();
        authorityPath_ = files_.write("ca", std::string(ca.begin(), ca.end()));
        keys_.addKey(".builtin_trusted_keys", certificateDescription(ca));
        const Bytes der = authority_.issue({});
        certificate_ = std::string(der.begin(), der.end());
        description_ = certificateDescription(der);
    }

    ~CtlFiles() override {
        fs::remove_all("/etc/keys");
        fs::remove_all(agentSocketDirectory);
    }

    // What an agent says that has refused these files, each by the number of its last refusal.
    static std::string status(const std::map<std::string, int>& refused) {
        nlohmann::json answer;
        auto& counters = answer["parameters"]["counters"]["keyrings"][".ima"];
        counters["refused"] = nlohmann::json::object();
        for (const auto& [path, number] : refused) {
            counters["refused"][path] = {{"reason", cause}, {"number", number}};
        }
        return answer.dump() + "\n";
    }

    // As it says to the verb, which installs the file as "good".
    Ran installed(const std::vector<std::string>& answers, const std::string& wait) const {
        const Impostor agent(answers);
        return ctl({"install", ".ima", "--wait", wait, files_.write("good", certificate_)});
    }

    std::string inPlace(const std::string& name, const std::string& content) const {
        std::ofstream(directory + "/" + name, std::ios::binary) << content;
        return directory + "/" + name;
    }

    static std::vector<std::string> namesInPlace() {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(directory)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    KeyService keys_;
    TempDir files_;
    const CertificateAuthority authority_ = CertificateAuthority::generate();
    std::string authorityPath_;
    std::string certificate_;
    std::string description_;
};

TEST_F(CtlFiles, CheckHasARowForEachFileAndTheGravestStatus) {
    const Ran ran = ctl({"check", "--json", ".ima", files_.write("good", certificate_),
                         files_.write("bad", "garbage")});
    EXPECT_EQ(ran.status, 3);
    const auto rows = ran.json().at("check");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0].at("verdict"), "unknown") << "without the issuer's certificate";
    EXPECT_EQ(rows[0].at("reason"), "unverifiable-signature");
    EXPECT_EQ(rows[0].at("description"), description_);
    EXPECT_EQ(rows[1].at("reason"), "not-a-certificate");
    EXPECT_EQ(rows[1].at("errors")[0], "Bad message");
    EXPECT_EQ(rows[1].at("keyring"), ".ima");
}

TEST_F(CtlFiles, CheckNamesTheKeyAndItsFilesWhereTheVerdictIsUnknown) {
    const std::string twin = inPlace("twin", certificate_);
    const Ran ran = ctl({"check", ".ima", files_.write("good", certificate_)});
    EXPECT_EQ(ran.status, 4);
    EXPECT_THAT(ran.out, HasSubstr("good: unknown (unverifiable-signature)"));
    EXPECT_THAT(ran.out, HasSubstr("; the description of its key: \"" + description_ + "\"; " +
                                   twin + " carries the same key"));
}

TEST_F(CtlFiles, CheckTakesTheKeyringWithoutItsDot) {
    const Ran ran = ctl({"check", "builtin_trusted_keys", files_.write("good", certificate_)});
    EXPECT_EQ(ran.status, 3);
    EXPECT_THAT(ran.out, HasSubstr("refused (protected-keyring, \"Permission denied\"): only the "
                                   "kernel itself fills .builtin_trusted_keys"));
}

TEST_F(CtlFiles, CheckSaysWhichFileOfAnIssuerItCannotUse) {
    const Ran ran = ctl({"check", ".ima", "--issuer", files_.write("text", "text"),
                         files_.write("good", certificate_)});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(ran.err, "vestrelctl: issuer " + files_.path("text") + ": no certificate in it\n");
}

TEST_F(CtlFiles, CheckTakesSeveralFilesOfIssuers) {
    const Bytes ca = CertificateAuthority::generate("Other").certificate();
    const std::string other = files_.write("other", std::string(ca.begin(), ca.end()));
    const std::string good = files_.write("good", certificate_);
    const auto reason = [](const Ran& ran) { return ran.json().at("check")[0].at("reason"); };
    EXPECT_EQ(reason(ctl({"check", "--json", ".ima", "--issuer", other, good})),
              "unverifiable-signature");
    EXPECT_NE(reason(ctl({"check", "--json", ".ima", "--issuer", other, "--issuer", authorityPath_,
                          good})),
              "unverifiable-signature");
    EXPECT_EQ(
        ctl({"check", "--json", ".ima", "--issuer", other, good, good}).json().at("check").size(),
        2U)
        << "what follows an issuer is no issuer";
}

TEST_F(CtlFiles, CheckIsOneLineAFileWhateverItsNameHolds) {
    const Ran ran = ctl({"check", ".ima", files_.write("a\nb", "garbage")});
    EXPECT_THAT(ran.out, HasSubstr("/a\\x0ab: refused (not-a-certificate"));
    EXPECT_EQ(std::ranges::count(ran.out, '\n'), 1);
}

TEST_F(CtlFiles, InstallWritesTheFileAndLeavesNothingBesideIt) {
    inPlace("good.integrity-tmp", "left behind by another writer");
    const Ran ran = ctl({"install", ".ima", "--wait", "0", files_.write("good", certificate_)});
    EXPECT_EQ(ran.status, 0) << ran.out;
    EXPECT_EQ(contentOf(directory + "/good"), certificate_);
    EXPECT_THAT(namesInPlace(), testing::ElementsAre("good"));
    EXPECT_THAT(keys_.keysOf(".ima"), testing::IsEmpty()) << "to load it is the agent's business";
}

TEST_F(CtlFiles, InstallOfARefusedOneWritesNothing) {
    const Ran ran = ctl({"install", ".ima", files_.write("bad", "garbage")});
    EXPECT_EQ(ran.status, 3);
    EXPECT_THAT(ran.out, HasSubstr("bad: not-installed: not a certificate"));
    EXPECT_THAT(namesInPlace(), testing::IsEmpty());
}

TEST_F(CtlFiles, InstallKeepsAFileWithAnotherKey) {
    inPlace("good", "something else");
    const Ran ran = ctl({"install", ".ima", files_.write("good", certificate_)});
    EXPECT_EQ(ran.status, 1);
    EXPECT_THAT(ran.out, HasSubstr("carries another key: remove it first"));
    EXPECT_EQ(contentOf(directory + "/good"), "something else");
}

TEST_F(CtlFiles, InstallEndsWithTheRefusalThatTheAgentTellsOf) {
    const Ran ran = installed({status({}), status({{placed, 1}})}, tooLong);
    EXPECT_EQ(ran.status, 5);
    EXPECT_THAT(ran.out, HasSubstr("good: not-loaded: the agent says that it was refused: " +
                                   cause + "; check could not know: it names"));
}

TEST_F(CtlFiles, InstallSeesThatAFileIsRefusedOnceMoreWhateverElseWasSince) {
    const std::string before = status({{placed, 1}});
    for (const std::string& after : {status({{placed, 2}}), status({{placed, 2}, {"other", 3}}),
                                     status({{placed, 3}}), status({{placed, 9}, {"other", 8}})}) {
        const Ran ran = installed({before, after}, tooLong);
        EXPECT_EQ(ran.status, 5);
        EXPECT_THAT(ran.out, HasSubstr("the agent says that it was refused: " + cause));
        fs::remove_all(agentSocketDirectory);
        fs::remove(placed);
    }
}

TEST_F(CtlFiles, InstallIsNotMisledByEarlierRefusals) {
    const std::string before = status({{placed, 1}});
    for (const std::string& after :
         {before, status({{placed, 1}, {"other", 2}}), status({}), status({{"other", 2}})}) {
        const Ran ran = installed({before, after}, "0.05");
        EXPECT_EQ(ran.status, 5);
        EXPECT_THAT(ran.out, HasSubstr("good: not-loaded: no key of it came in time\n"));
        fs::remove_all(agentSocketDirectory);
        fs::remove(placed);
    }
}

TEST_F(CtlFiles, InstallWithoutAnAgentSaysSoAtOnce) {
    const Ran ran = ctl({"install", ".ima", "--wait", tooLong, files_.write("good", certificate_)});
    EXPECT_EQ(ran.status, 5);
    EXPECT_THAT(ran.out, HasSubstr("good: not-loaded: no agent at /run/vestrel/agent.sock: No such "
                                   "file or directory; the file is in place, but nothing loads it "
                                   "until one runs\n"));
    EXPECT_EQ(contentOf(placed), certificate_);
}

TEST_F(CtlFiles, InstallSaysThatTheAgentIsMute) {
    const Zell::OwnedFd silent(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    Impostor::listens(silent.get());
    const Ran ran = ctl({"install", ".ima", "--wait", "0.05", files_.write("good", certificate_)});
    EXPECT_EQ(ran.status, 5);
    EXPECT_THAT(ran.out, HasSubstr("no key of it came in time; "));
}

TEST_F(CtlFiles, InstallSaysThatTheAgentAnswersNotAsAgreed) {
    const nlohmann::json::json_pointer known("/parameters/counters/keyrings/.ima/refused");
    for (const nlohmann::json& refused :
         {nlohmann::json(), nlohmann::json::array(), nlohmann::json{{placed, 1}},
          nlohmann::json{{placed, nlohmann::json::object()}},
          nlohmann::json{{placed, {{"reason", 1}, {"number", 1}}}},
          nlohmann::json{{placed, {{"reason", cause}, {"number", "1"}}}}}) {
        nlohmann::json answer;
        answer[known] = refused;
        const Ran ran = installed({status({}), answer.dump() + "\n"}, "0.05");
        EXPECT_EQ(ran.status, 5) << refused;
        EXPECT_THAT(ran.out, HasSubstr("no key of it came in time; the agent does not answer: not "
                                       "as agreed at /run/vestrel/agent.sock: "))
            << refused;
        fs::remove_all(agentSocketDirectory);
        fs::remove(placed);
    }
}

TEST_F(CtlFiles, InstallIsLateWhenNoKeyComes) {
    const Impostor agent({none});
    keys_.addKey(".ima", description_); // which was there before
    const Ran ran =
        ctl({"install", ".ima", "--wait", "0.05", "--json", files_.write("good", certificate_)});
    EXPECT_EQ(ran.status, 5);
    const auto row = ran.json().at("install")[0];
    EXPECT_EQ(row.at("outcome"), "not-loaded");
    EXPECT_EQ(row.at("check").at("inKeyring"), true);
}

TEST_F(CtlFiles, RemoveOfWhatHasNoKeyDoesNotWait) {
    inPlace("good", certificate_);
    const Ran ran = ctl({"remove", ".ima", "good"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out,
              directory + "/good: removed \"" + description_ + "\": no key of it was in .ima\n");
    EXPECT_THAT(namesInPlace(), testing::IsEmpty());
}

TEST_F(CtlFiles, RemoveSaysWhereItCannotSeeTheKey) {
    inPlace("good", certificate_);
    keys_.addKey(".ima", description_);
    keys_.revoke(keys_.serialOf(".ima"));
    const Ran ran = ctl({"remove", ".ima", "good"});
    EXPECT_EQ(ran.status, 4);
    EXPECT_THAT(ran.out, HasSubstr(": whether a key of it is in .ima cannot be known\n"));
    EXPECT_THAT(namesInPlace(), testing::IsEmpty());
}

TEST_F(CtlFiles, RemoveNamesAFileThatIsNotThereOnce) {
    const Ran ran = ctl({"remove", ".ima", "none"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.out, directory + "/none: not-removed: No such file or directory\n");
}

TEST_F(CtlFiles, RemoveWithoutAnAgentSaysSoAtOnce) {
    inPlace("good", certificate_);
    keys_.addKey(".ima", description_);
    const Ran ran = ctl({"remove", ".ima", "good", "--wait", tooLong});
    EXPECT_EQ(ran.status, 5);
    EXPECT_THAT(ran.out, HasSubstr("its key is still in .ima; no agent at "));
    EXPECT_THAT(namesInPlace(), testing::IsEmpty());
}

TEST_F(CtlFiles, RemoveIsLateWhileTheKeyStays) {
    const Impostor agent({none});
    inPlace("good", certificate_);
    keys_.addKey(".ima", description_);
    const Ran ran = ctl({"remove", ".ima", "good", "--wait", "0.05"});
    EXPECT_EQ(ran.status, 5);
    EXPECT_THAT(ran.out, HasSubstr("not-unlinked"));
}

TEST_F(CtlFiles, RemoveSaysWhichOtherFileCarriesTheKey) {
    inPlace("good", certificate_);
    inPlace("twin", certificate_);
    keys_.addKey(".ima", description_);
    const Ran ran = ctl({"remove", ".ima", "good"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_THAT(ran.out, HasSubstr(": " + directory + "/twin carries the same key"));
}

TEST_F(CtlFiles, RemoveTakesNamesOnly) {
    files_.write("good", certificate_);
    for (const std::string& name : {files_.path("good"), std::string(".."), std::string(".")}) {
        EXPECT_EQ(ctl({"remove", ".ima", name}).status, 2) << name;
    }
    EXPECT_TRUE(files_.has("good"));
}

TEST_F(CtlFiles, PlanHasAnActionForEveryFileAndKey) {
    inPlace("garbage", "garbage");
    inPlace("good", certificate_);
    keys_.addKey(".ima", "another: 01");
    const auto rows = ctl({"plan", "--json"}).json().at("plan");
    ASSERT_GE(rows.size(), 3U);
    EXPECT_EQ(rows[0].at("action"), "skip");
    EXPECT_EQ(rows[1].at("action"), "load");
    EXPECT_EQ(rows[1].at("file"), directory + "/good");
    EXPECT_EQ(rows[2].at("action"), "keep");
    EXPECT_EQ(rows[2].at("description"), "another: 01");
    keys_.addKey(".ima", description_);
    EXPECT_EQ(ctl({"plan", "--json"}).json().at("plan")[1].at("action"), "map");
    EXPECT_EQ(ctl({"plan"}).status, 0);
}

TEST_F(CtlFiles, PlanSaysOfAMissingKeyringWhatCheckSays) {
    const std::string good = inPlace("good", certificate_);
    keys_.removeKeyring(".ima");
    const Ran checked = ctl({"check", "--json", ".ima", good});
    EXPECT_EQ(checked.status, 3);
    EXPECT_EQ(checked.json().at("check")[0].at("reason"), "missing-keyring");
    const Ran planned = ctl({"plan", "--json"});
    EXPECT_EQ(planned.status, 3);
    EXPECT_EQ(planned.json().at("plan")[0].at("action"), "refuse");
    EXPECT_EQ(planned.json().at("plan")[0].at("explanation"),
              checked.json().at("check")[0].at("explanation"));
}

TEST_F(CtlFiles, PlanSaysOfAnUnreadableKeyringWhatCheckSays) {
    const std::string good = inPlace("good", certificate_);
    keys_.revoke(keys_.serialOf(".ima"));
    const Ran checked = ctl({"check", "--json", ".ima", good});
    EXPECT_EQ(checked.status, 4);
    const Ran planned = ctl({"plan", "--json"});
    EXPECT_EQ(planned.status, 4);
    EXPECT_EQ(planned.json().at("plan")[0].at("action"), "load");
    EXPECT_EQ(planned.json().at("plan")[0].at("explanation"),
              checked.json().at("check")[0].at("explanation"));
}

// One file operation each, as the system refuses it.
TEST_F(CtlFiles, AFailedChangeLeavesTheDirectoryAsItWas) {
    const std::vector<std::uint8_t> bytes{1, 2, 3};
    EXPECT_THROW(fileIs("/etc/keys/none/file", bytes), std::system_error);
    fs::create_directories(directory + "/folder/inside");
    EXPECT_THROW(fileIs(directory + "/folder", bytes), std::system_error)
        << "which cannot be renamed onto";
    EXPECT_THAT(namesInPlace(), testing::ElementsAre("folder"));
    EXPECT_THROW(fileDel(directory + "/absent"), std::system_error);
}

TEST_F(CtlFiles, AWrittenFileIsReadableToAllAndWritableToItsOwner) {
    umask(077);
    fileIs(directory + "/file", std::vector<std::uint8_t>{1});
    umask(022);

    struct stat status {};

    ASSERT_EQ(stat((directory + "/file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

} // namespace

} // namespace Vestrel::Tests
