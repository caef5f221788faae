// SPDX-License-Identifier: Apache-2.0
// Every way in which events are lost, and that the agent finds out and puts it right.
#include "agent/Agent.h"
#include "tests/kernel/cases/KernelTest.h"
#include "tests/support/LineClient.h"

#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>

namespace Vestrel::Tests {
namespace {

namespace fs = std::filesystem;

const std::string driftName = "VESTREL_INTEGRITY_DRIFT: ";

// Holds the agent still, so that what happens meanwhile piles up in the kernel's queues.
class Stopped {
public:
    explicit Stopped(pid_t process) : process_(process) {
        kill(process_, SIGSTOP);
        int status = 0;
        EXPECT_EQ(waitpid(process_, &status, WUNTRACED), process_);
    }

    ~Stopped() { kill(process_, SIGCONT); }

    Stopped(const Stopped&) = delete;
    Stopped& operator=(const Stopped&) = delete;

private:
    pid_t process_;
};

// Until the case ends.
class MaxQueuedEvents {
public:
    explicit MaxQueuedEvents(int events) {
        std::ifstream(path) >> before_;
        std::ofstream(path) << events;
    }

    ~MaxQueuedEvents() { std::ofstream(path) << before_; }

    MaxQueuedEvents(const MaxQueuedEvents&) = delete;
    MaxQueuedEvents& operator=(const MaxQueuedEvents&) = delete;

private:
    static constexpr const char* path = "/proc/sys/fs/inotify/max_queued_events";
    int before_ = 0;
};

class Drift : public AgentTest {
protected:
    static Json ask(const std::string& request) {
        LineClient client(Agent::statusSocket);
        return Json::parse(client.ask(request), nullptr, false)["parameters"];
    }

    static Json counters(const std::string& keyring = ".ima") {
        return ask(R"({"method":"Status"})")["counters"]["keyrings"][keyring];
    }

    static std::int64_t recoveries() {
        return ask(R"({"method":"Status"})")["drift"]["recoveries"].get<std::int64_t>();
    }

    Lines reported() {
        Lines lines;
        for (const std::string& line : messages()) {
            if (line.starts_with(driftName)) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    // Waits for the agent's message, and for its rebuild to be over.
    void awaitRecovery(std::size_t times = 1) {
        EXPECT_TRUE(eventually([&] { return reported().size() == times; })) << said();
        EXPECT_EQ(recoveries(), static_cast<std::int64_t>(times)) << said();
    }

    // The agent has nothing left to find.
    void expectNoDifferences() {
        EXPECT_EQ(ask(R"({"method":"Resync"})")["differences"].dump(), "[]") << said();
    }

    // For a failure that does not come back at will.
    std::string said() {
        return "the agent's messages: " + testing::PrintToString(messages()) +
               "\nits counters: " + counters().dump() + "\nwhat it wrote:\n" + agent().output();
    }
};

TEST_F(Drift, IsNotFoundInAnUndisturbedLife) {
    start();
    write(file("kept"), certificate("kept"));
    write(file("stranger"), unknownAuthority().issue({}));
    write(file("half.integrity-tmp"), certificate("half"));
    recorded("kept");
    Keyring::named(".ima").tryAdd(certificate("alone"));
    recorded("alone");
    EXPECT_TRUE(eventually([&] { return messages().size() == 1; })) << said();
    expectNoDifferences();
    EXPECT_EQ(reported(), Lines{}) << said();
}

TEST_F(Drift, AfterAnOverflowOfTheDirectoryIsPutRight) {
    const MaxQueuedEvents few(16);
    start(); // a queue takes its limit when it is made
    write(file("gone"), certificate("gone"));
    write(file("changed"), certificate("before"));
    recorded("gone");
    recorded("before");
    {
        const Stopped stopped(agent().pid());
        for (int i = 0; i < 32; ++i) {
            write(file("noise-" + std::to_string(i % 2)), bytesOf("no certificate"));
        }
        fs::remove(file("gone"));
        write(file("changed"), certificate("after"));
        write(file("new"), certificate("new"));
    }
    EXPECT_TRUE(holdsOnly({"after", "new"}));
    awaitRecovery();
    EXPECT_GE(counters()["overflows"], 1);
    EXPECT_NE(reported()[0].find(file("gone") + " is on record but gone"), std::string::npos);
    EXPECT_NE(reported()[0].find(file("new") + " is not on record"), std::string::npos);
    expectNoDifferences();
    fence(); // and it goes on as ever
}

TEST_F(Drift, AfterLostNotificationsIsPutRight) {
    start();
    const Keyring ring = Keyring::named(".ima");
    const Bytes kept = certificate("kept");
    ring.add(kept);
    recorded("kept");
    {
        const Stopped stopped(agent().pid());
        for (int i = 0; i < 300; ++i) { // the queue holds 256
            ring.add(kept);             // displaces itself
        }
        ring.add(certificate("lost"));
    }
    awaitRecovery();
    EXPECT_GE(counters()["notificationsLost"], 1);
    EXPECT_NE(reported()[0].find("(" + description("lost") + ") is not on record"),
              std::string::npos)
        << reported()[0];
    expectNoDifferences();
    EXPECT_TRUE(holdsOnly({"kept", "lost"}));
}

TEST_F(Drift, OfAStartThatLoadsMoreThanItsQueueHoldsIsPutRight) {
    fs::create_directories(directory());
    constexpr int files = 300;
    for (int i = 0; i < files; ++i) {
        write(file("many-" + std::to_string(i)), certificate("many-" + std::to_string(i)));
    }
    start();
    awaitRecovery();
    expectNoDifferences();
    EXPECT_EQ(ask(R"({"method":"Keyrings"})")["keyring"][".ima"]["key"].size(), std::size_t{files});
}

TEST_F(Drift, OfAClearedKeyringIsPutRight) {
    start();
    write(file("one"), certificate("one"));
    write(file("two"), certificate("two"));
    recorded("one");
    recorded("two");
    Keyring::named(".ima").clear();
    EXPECT_TRUE(holdsOnly({"one", "two"}));
    awaitRecovery();
    EXPECT_EQ(counters()["upsets"], 1);
    expectNoDifferences();
}

TEST_F(Drift, OfAnotherDirectoryUnderTheNameIsPutRightOnRequest) {
    start();
    fs::rename(directory(), "/etc/keys/old");
    fs::create_directory(directory());
    write(file("new"), certificate("new"));
    const Json differences = ask(R"({"method":"Resync"})")["differences"];
    EXPECT_EQ(differences.dump(), R"([".ima: /etc/keys/ima/new is not on record",)"
                                  R"(".ima: its directory is not watched"])");
    EXPECT_NE(recorded("new"), 0);
    EXPECT_EQ(reported().size(), 1U);
    expectNoDifferences();
}

TEST_F(Drift, OfAMissedFileIsFoundOnTime) {
    agent().argumentsAre({"--drift-interval", "1"});
    start();
    write("/etc/keys/elsewhere", certificate("linked"));
    fs::create_hard_link("/etc/keys/elsewhere", file("linked")); // nothing is announced
    EXPECT_TRUE(holdsOnly({"linked"}));
    awaitRecovery();
    expectNoDifferences();
}

TEST_F(Drift, IsFoundOnReloadAndReported) {
    start();
    write("/etc/keys/elsewhere", certificate("linked"));
    fs::create_hard_link("/etc/keys/elsewhere", file("linked"));
    agent().signal(SIGHUP);
    agent().waitReady(2);
    EXPECT_TRUE(holdsOnly({"linked"}));
    EXPECT_EQ(reported(),
              Lines{driftName + "Record, kernel and directories had drifted apart: .ima: " +
                    file("linked") + " is not on record. Everything is rebuilt."});
}

// A start takes the certificate from the temporary file, whose end nobody sees.
TEST_F(Drift, DoesNotComeOfATemporaryFileThatAReloadTook) {
    start();
    write(file("signer.integrity-tmp"), certificate("signer"));
    agent().signal(SIGHUP);
    agent().waitReady(2);
    EXPECT_TRUE(holdsOnly({"signer"}));
    fs::rename(file("signer.integrity-tmp"), file("signer"));
    recorded("signer");
    fence();
    fs::remove(file("signer"));
    EXPECT_TRUE(holdsOnly({})) << said();
    expectNoDifferences();
}

TEST_F(Drift, AfterAFatalAssertionIsPutRightByTheNextStart) {
    start();
    write(file("moved"), certificate("moved"));
    write(file("kept"), certificate("kept"));
    recorded("moved");
    recorded("kept");
    {
        const Stopped stopped(agent().pid()); // the whole burst in one reading
        fs::rename(file("moved"), "/etc/keys/moved");
        fs::rename("/etc/keys/moved", file("moved"));
        fs::remove(file("moved"));
    }
    const int status = agent().ended();
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGABRT);
    EXPECT_NE(agent().output().find("removeFile: assertion failed: oldDesc"), std::string::npos);
    write(file("new"), certificate("new"));
    start();
    EXPECT_NE(recorded("new"), 0);
    EXPECT_EQ(ask(R"({"method":"Status"})")["agent"]["pid"], agent().pid());
    expectNoDifferences();
}

} // namespace
} // namespace Vestrel::Tests
