// SPDX-License-Identifier: Apache-2.0
// What becomes of the agent when a keyring of the kernel is revoked, which nothing but a new boot
// undoes: so this case has a machine of its own.
#include "agent/Agent.h"
#include "tests/kernel/cases/KernelTest.h"
#include "tests/support/LineClient.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace Vestrel::Tests {
namespace {

class RevokedKeyring : public testing::Test {
protected:
    ~RevokedKeyring() override { std::filesystem::remove_all("/etc/keys"); }

    static Json status() {
        LineClient client(Agent::statusSocket);
        return Json::parse(client.ask(R"({"method":"Status"})"), nullptr, false)["parameters"];
    }

    bool eventually(const std::function<bool()>& condition) {
        for (const auto end = std::chrono::steady_clock::now() + deadline; !condition();
             agent_.step()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
        }
        return true;
    }

    AgentProcess agent_;
};

TEST_F(RevokedKeyring, IsReportedAndTheOthersGoOn) {
    if (testing::UnitTest::GetInstance()->test_to_run_count() != 1) {
        GTEST_SKIP() << "no other case can run after it: it has a machine of its own";
    }
    agent_.start();
    if (keyctl_revoke(Keyring::named(".ima").serial()) == -1) {
        GTEST_SKIP() << "this kernel does not let its keyring be revoked: " << std::strerror(errno);
    }
    EXPECT_TRUE(eventually([&] { return !agent_.messages().empty(); }));
    EXPECT_NE(agent_.messages().at(0).find("VESTREL_INTEGRITY_DRIFT: "), std::string::npos);
    EXPECT_NE(agent_.messages().at(0).find(".ima: "), std::string::npos) << agent_.messages().at(0);
    EXPECT_TRUE(eventually([&] {
        return !status()["keyringStateMachine"]["watcherInfos"].contains(".ima");
    })) << status().dump();
    const std::string other = ".secondary_trusted_keys";
    write(file("goes-on", other), certificate("goes-on"));
    EXPECT_TRUE(
        eventually([&] { return Keyring::named(other).keyOf(description("goes-on")) != 0; }));
    EXPECT_EQ(agent_.messages().size(), 1U);
    agent_.stop();
}

} // namespace
} // namespace Vestrel::Tests
