// SPDX-License-Identifier: Apache-2.0
// The operator's command on a real kernel: what it says is what is, with and without the agent.
#include "keymodel/IntegrityKeyLoader.h"
#include "tests/kernel/cases/CtlProcess.h"
#include "tests/kernel/cases/KernelTest.h"
#include "tests/support/CertificateVerdicts.h"

#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace Vestrel::Tests {
namespace {

namespace fs = std::filesystem;

const std::string issuer = " --issuer " + trust("ca.der");

Bytes contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool has(const CtlRun& run, const std::string& text) {
    return run.output.find(text) != std::string::npos;
}

// The agent runs; files to install stand in /tmp/new.
class Ctl : public AgentTest {
protected:
    Ctl() { fs::create_directories(source_); }

    ~Ctl() override { fs::remove_all(source_); }

    std::string made(const std::string& name, const Bytes& content) const {
        write(source_ + name, content);
        return source_ + name;
    }

    const std::string source_ = "/tmp/new/";
    const Keyring ima_ = Keyring::named(".ima");
};

class CtlCheck : public KernelTest, public testing::WithParamInterface<const char*> {};

TEST_P(CtlCheck, SaysOfEveryFileWhatTheKernelThenDoes) {
    const std::string folder = "/tmp/checked/";
    fs::create_directories(folder);
    const auto cases = certificateCases();
    for (const CertificateCase& one : cases) {
        write(folder + one.name, one.file(trustedAuthority(), unknownAuthority()));
    }
    const CtlRun run = ctl("check --json " + std::string(GetParam()) + issuer + " " + folder + "*");
    EXPECT_EQ(run.status, 3) << run.output.substr(0, 500);
    const auto rows = run.rows("check");
    ASSERT_EQ(rows.size(), cases.size());
    for (const auto& row : rows) {
        const std::string path = row.at("file");
        SCOPED_TRACE(path);
        const auto key = Orvo::makeNode<IntegrityKeyLoader>()->loadKey(path, GetParam());
        EXPECT_EQ(row.at("verdict"), key == -1 ? "refused" : "accepted");
        if (key != -1) {
            EXPECT_EQ(row.at("description"), descriptionOf(key));
        }
    }
    fs::remove_all(folder);
}

INSTANTIATE_TEST_SUITE_P(For, CtlCheck, testing::Values(".ima", ".secondary_trusted_keys"),
                         [](const auto& test) { return std::string(test.param).substr(1); });

TEST_F(Ctl, CheckEndsWithAStatusForEachVerdict) {
    const std::string good = made("good", certificate("good"));
    EXPECT_EQ(ctl("check .ima" + issuer + " " + good).status, 0);
    EXPECT_EQ(ctl("check ima" + issuer + " " + good).status, 0) << "the dot may be left out";
    EXPECT_EQ(ctl("check .ima " + good).status, 4) << "without the issuer's certificate";
    EXPECT_EQ(ctl("check .ima " + made("bad", bytesOf("garbage"))).status, 3);
    EXPECT_EQ(ctl("check .ima " + source_ + "absent").status, 1);
    EXPECT_EQ(ctl("check .ima " + good + " --issuer " + source_ + "absent").status, 1);
}

TEST_F(Ctl, CheckSaysInALineWhyTheOperatorReadsRequiredKeyNotAvailable) {
    const CtlRun run = ctl("check .ima " + trust("stranger.der"));
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.output.find(trust("stranger.der") +
                              ": refused (no-trusted-issuer, \"Required key not available\"): its "
                              "issuer \"Vestrel: stranger-ca\""),
              0U)
        << run.output;
    EXPECT_TRUE(has(run, "is not in .builtin_trusted_keys")) << run.output;
}

TEST_F(Ctl, InstallPutsTheFileInPlaceAndWaitsForItsKey) {
    start();
    const Bytes pem = bytesOf("a comment\n" + toPem(certificate("one")));
    const CtlRun run = ctl("install .ima " + made("one.pem", pem) + issuer);
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(run.output, source_ + "one.pem: loaded as \"" + description("one") + "\", from " +
                              file("one.pem") + "\n");
    EXPECT_NE(ima_.keyOf(description("one")), 0);
    EXPECT_EQ(contentOf(file("one.pem")), pem) << "the very bytes of the file";

    struct stat status {};

    ASSERT_EQ(stat(file("one.pem").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
    EXPECT_FALSE(fs::exists(file("one.pem.integrity-tmp")));
    EXPECT_EQ(messages(), Lines{});
}

TEST_F(Ctl, InstallOfWhatIsThereAlreadyWaitsForTheNewKey) {
    start();
    const std::string one = made("one.der", certificate("one"));
    ASSERT_EQ(ctl("install .ima " + one + issuer).status, 0);
    const key_serial_t earlier = ima_.keyOf(description("one"));
    EXPECT_EQ(ctl("install .ima " + one + issuer).status, 0);
    EXPECT_NE(ima_.keyOf(description("one")), earlier);
    EXPECT_EQ(ima_.keys().size(), 1U);
}

TEST_F(Ctl, InstallGoesOnWhereTheVerdictIsUnknown) {
    start();
    EXPECT_EQ(ctl("install .ima " + made("one.der", certificate("one"))).status, 0);
    EXPECT_NE(ima_.keyOf(description("one")), 0);
}

TEST_F(Ctl, InstallOfWhatTheKernelRefusesChangesNothing) {
    start();
    const CtlRun run = ctl("install .ima " + trust("stranger.der") + " " +
                           made("good.der", certificate("good")) + issuer);
    EXPECT_EQ(run.status, 3);
    EXPECT_TRUE(has(run, "stranger.der: not-installed: its issuer")) << run.output;
    EXPECT_FALSE(fs::exists(file("stranger.der")));
    EXPECT_NE(ima_.keyOf(description("good")), 0) << "the other one is installed all the same";
    EXPECT_EQ(messages(), Lines{});
}

TEST_F(Ctl, InstallSaysWhenTheKernelRefusedWhatCouldNotBeKnown) {
    start();
    Bytes damaged = certificate("damaged");
    damaged.back() ^= 1U;
    for (const char* const time : {"first", "second"}) {
        SCOPED_TRACE(time);
        const CtlRun run = ctl("install .ima --wait 3600 " + made("damaged.der", damaged));
        EXPECT_EQ(run.status, 5);
        EXPECT_TRUE(has(run, "damaged.der: not-loaded: the agent says that it was refused: "))
            << run.output;
        EXPECT_TRUE(has(run, "; check could not know: ")) << run.output;
    }
    EXPECT_EQ(ima_.keys().size(), 0U);
    const std::string sound = made("damaged.der", certificate("damaged"));
    EXPECT_EQ(ctl("install .ima " + sound).status, 0) << "whatever was refused before";
}

TEST_F(Ctl, InstallNeverReplacesAFileThatCarriesAnotherKey) {
    start();
    ASSERT_EQ(ctl("install .ima " + made("name.der", certificate("one")) + issuer).status, 0);
    const CtlRun run = ctl("install .ima " + made("name.der", certificate("other")) + issuer);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(has(run, "carries another key: remove it first")) << run.output;
    EXPECT_EQ(contentOf(file("name.der")), certificate("one"));
    EXPECT_TRUE(holdsOnly({"one"}));
}

TEST_F(Ctl, InstallRefusesNamesThatTheAgentIgnoresAndFilesThatAreInPlace) {
    start();
    const std::string hidden = made("one.integrity-tmp", certificate("one"));
    EXPECT_EQ(ctl("install .ima " + hidden + issuer).status, 1);
    write(file("placed"), certificate("placed"));
    EXPECT_EQ(ctl("install .ima " + file("placed") + issuer).status, 1);
    EXPECT_TRUE(fs::exists(file("placed")));
}

TEST_F(Ctl, InstallWithoutAnAgentWritesTheFileAndSaysThatNoKeyCame) {
    fs::create_directories(directory());
    const std::string one = made("one.der", certificate("one"));
    const CtlRun run = ctl("install .ima --wait 3600 " + one + issuer);
    EXPECT_EQ(run.status, 5);
    EXPECT_TRUE(has(run, "one.der: not-loaded: no agent at ")) << run.output;
    EXPECT_TRUE(fs::exists(file("one.der")));
    const CtlRun noWait = ctl("install .ima --wait 0 " + one + issuer);
    EXPECT_EQ(noWait.status, 0);
    EXPECT_TRUE(has(noWait, "one.der: written as")) << noWait.output;
    start();
    EXPECT_TRUE(holdsOnly({"one"}));
}

TEST_F(Ctl, InstallIntoADirectoryThatIsMissingFails) {
    const CtlRun run = ctl("install .ima " + made("one.der", certificate("one")) + issuer);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(has(run, "No such file or directory")) << run.output;
}

TEST_F(Ctl, RemoveTakesTheFileAndWaitsForItsKeyToGo) {
    start();
    ASSERT_EQ(ctl("install .ima " + made("one.der", certificate("one")) + issuer).status, 0);
    const CtlRun run = ctl("remove .ima one.der");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, file("one.der") + ": unlinked \"" + description("one") + "\"\n");
    EXPECT_FALSE(fs::exists(file("one.der")));
    EXPECT_EQ(ima_.keys().size(), 0U);
}

TEST_F(Ctl, RemoveSaysThatTheKeyStaysWhileAnotherFileCarriesIt) {
    start();
    ASSERT_EQ(ctl("install .ima " + made("one.der", certificate("one")) + " " +
                  made("copy.der", certificate("one")) + issuer)
                  .status,
              0);
    const CtlRun run = ctl("remove .ima one.der");
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(has(run, "key-stays \"" + description("one") + "\": " + file("copy.der") +
                             " carries the same key"))
        << run.output;
    fence();
    EXPECT_TRUE(holdsOnly({"one"}));
}

TEST_F(Ctl, RemoveSaysWhenNoKeyWasThere) {
    start();
    write(file("garbage"), bytesOf("garbage"));
    const CtlRun run = ctl("remove .ima garbage absent");
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(has(run, "garbage: removed: no key of it was in .ima")) << run.output;
    EXPECT_TRUE(has(run, "absent: not-removed: No such file")) << run.output;
    EXPECT_FALSE(fs::exists(file("garbage")));
}

TEST_F(Ctl, RemoveWithoutAnAgentSaysThatTheKeyIsStillThere) {
    fs::create_directories(directory());
    for (const char* const name : {"one", "two"}) {
        write(file(name), certificate(name));
        ima_.add(certificate(name));
    }
    const CtlRun run = ctl("remove .ima one --wait 3600");
    EXPECT_EQ(run.status, 5);
    EXPECT_TRUE(has(run, "its key is still in .ima; no agent at ")) << run.output;
    EXPECT_EQ(ctl("remove .ima two --wait 0").status, 0);
    EXPECT_FALSE(fs::exists(file("two")));
}

TEST_F(Ctl, RemoveLeavesTheKernelsOwnKeyringsAlone) {
    fs::create_directories(directory(".builtin_trusted_keys"));
    fs::copy(trust("ca.der"), file("ca.der", ".builtin_trusted_keys"));
    const CtlRun run = ctl("remove .builtin_trusted_keys ca.der");
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(has(run, "only the kernel itself changes .builtin_trusted_keys")) << run.output;
}

// The rows of the plan, each as its action and the name of the file, or of the key without one.
Lines planned(const CtlRun& run, const std::string& keyring) {
    Lines lines;
    for (const auto& row : run.rows("plan")) {
        if (row.at("keyring") == keyring) {
            const std::string path = row.at("file");
            lines.push_back(row.at("action").get<std::string>() + " " +
                            (path.empty() ? row.at("description").get<std::string>()
                                          : fs::path(path).filename().string()));
        }
    }
    return lines;
}

TEST_F(Ctl, PlanIsWhatAStartOfTheAgentThenDoes) {
    fs::create_directories(directory());
    for (const char* const name : {"load-1", "load-2", "mapped"}) {
        write(file(name), certificate(name));
    }
    write(file("garbage"), bytesOf("garbage"));
    fs::copy(trust("stranger.der"), file("stranger"));
    const key_serial_t mapped = ima_.add(certificate("mapped"));
    const key_serial_t left = ima_.add(certificate("left"));
    const CtlRun run = ctl("plan --json" + issuer);
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(planned(run, ".ima"),
              (Lines{"skip garbage", "load load-1", "load load-2", "map mapped", "refuse stranger",
                     "keep " + description("left")}));
    EXPECT_EQ(ima_.keys().size(), 2U) << "nothing was done";
    start();
    EXPECT_TRUE(holdsOnly({"load-1", "load-2", "mapped", "left"}));
    EXPECT_EQ(ima_.keyOf(description("mapped")), mapped);
    EXPECT_EQ(ima_.keyOf(description("left")), left);
    EXPECT_EQ(messages(), Lines{refusal(file("stranger"), "Required key not available")});
}

TEST_F(Ctl, PlanKeepsTheKernelsOwnKeysAndIsATable) {
    const CtlRun run = ctl("plan");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output.find("KEYRING"), 0U) << run.output;
    EXPECT_TRUE(has(run, "\n.builtin_trusted_keys  keep")) << run.output;
}

TEST_F(Ctl, MessagesNeedsNoAgent) {
    const CtlRun run = ctl("messages --json");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.rows("messages").size(), 7U);
}

// The examples of the manual page as they stand there, in their order. One goes on for ever: it has
// a reader that does not.
TEST_F(Ctl, DoesWhatTheExamplesOfTheManualPageSay) {
    start();
    made("signer.der", certificate("signer"));
    fs::copy(trust("ca.pem"), source_ + "authority.pem");
    for (const std::string example :
         {"vestrelctl check --issuer authority.pem .ima signer.der",
          "vestrelctl install .ima signer.der", "vestrelctl remove .ima signer.der",
          "vestrelctl plan --issuer authority.pem",
          R"(vestrelctl status || logger "integrity keyrings need a look")", "vestrelctl files ima",
          "vestrelctl --json keys .ima", "vestrelctl trace --follow",
          "vestrelctl messages VESTREL_INTEGRITY_LOAD_KEY_FAIL"}) {
        const bool isEndless = example.ends_with("--follow");
        const CtlRun run = typed(isEndless ? example + " | head -n 1" : example, source_);
        EXPECT_EQ(run.status, 0) << example << ": " << run.output;
        const int itself = isEndless ? 128 + SIGPIPE : 0;
        EXPECT_TRUE(run.output.ends_with("its own end was " + std::to_string(itself) + "\n"))
            << example << ": " << run.output;
    }
}

} // namespace
} // namespace Vestrel::Tests
