// SPDX-License-Identifier: Apache-2.0
// Tests the line server against clients of every kind.
#include "agent/StatusServer.h"

#include "tests/support/LineClient.h"
#include "tests/support/Memory.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <deque>
#include <fstream>
#include <memory>
#include <system_error>

namespace Vestrel::Tests {

namespace {

constexpr const char* tooLong = "too long";
constexpr std::size_t bigAnswer = 3000000;

class StatusServerTest : public testing::Test {
protected:
    StatusServerTest() { start(); }

    void start() {
        server_ = std::make_unique<StatusServer>(
            loop_, path(), [this](std::string_view request) { return answer(request); }, tooLong);
    }

    std::string answer(std::string_view request) {
        requests_.emplace_back(request);
        return request == "big" ? std::string(bigAnswer, 'x') : "answer to " + std::string(request);
    }

    std::string path() const { return directory_.path("socket"); }

    LineClient client() {
        return LineClient(path(), [this] { loop_->dispatch(); });
    }

    const TempDir directory_;
    Orvo::Ptr<Zell::ActivityManager> loop_ = Zell::ActivityFacility::activityManager();
    std::vector<std::string> requests_;
    std::unique_ptr<StatusServer> server_;
};

TEST_F(StatusServerTest, AnswersALineWithALine) {
    auto one = client();
    EXPECT_EQ(one.ask("a"), "answer to a");
    EXPECT_EQ(one.ask("b"), "answer to b");
}

TEST_F(StatusServerTest, IsForItsOwnerOnlyWhateverTheUmask) {
    server_ = nullptr;
    const mode_t usual = umask(0);
    start();
    umask(usual);

    struct stat status {};

    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(StatusServerTest, AnswersSeveralLinesThatCameAtOnceInTheirOrder) {
    auto one = client();
    EXPECT_TRUE(one.send("a\n\nb\nc\n"));
    EXPECT_EQ(one.line(), "answer to a");
    EXPECT_EQ(one.line(), "answer to b");
    EXPECT_EQ(one.line(), "answer to c");
    EXPECT_EQ(requests_, (std::vector<std::string>{"a", "b", "c"})) << "an empty line is none";
}

TEST_F(StatusServerTest, PutsARequestTogetherFromItsPieces) {
    auto one = client();
    for (const char* const piece : {"a", "b", "c", "\n"}) {
        EXPECT_TRUE(requests_.empty());
        EXPECT_TRUE(one.send(piece));
        loop_->dispatch();
    }
    EXPECT_EQ(one.line(), "answer to abc");
}

TEST_F(StatusServerTest, AnswersWhatAHalfClosedConnectionAskedAndEndsIt) {
    auto one = client();
    EXPECT_TRUE(one.send("a\nb"));
    one.endOfRequests();
    EXPECT_EQ(one.line(), "answer to a");
    EXPECT_EQ(one.line(), "answer to b");
    EXPECT_TRUE(one.isClosed());
    EXPECT_EQ(server_->clients(), 0U);
}

TEST_F(StatusServerTest, TakesAnyBytesForARequest) {
    auto one = client();
    const std::string bytes("\xff\x00\xfe", 3);
    EXPECT_EQ(one.ask(bytes), "answer to " + bytes);
}

TEST_F(StatusServerTest, TakesALineOfTheLimitAndRefusesALongerOne) {
    auto one = client();
    const std::string longest(StatusServer::maxLine, 'l');
    EXPECT_EQ(one.ask(longest), "answer to " + longest);
    EXPECT_EQ(one.ask(longest + "l"), tooLong);
    EXPECT_TRUE(one.isClosed());
    EXPECT_EQ(requests_.size(), 1U);
}

TEST_F(StatusServerTest, RefusesALineWithoutEndBeforeItHasReadItAll) {
    auto one = client();
    EXPECT_FALSE(one.send(std::string(1U << 24U, 'x'))) << "nobody reads that much";
    EXPECT_EQ(one.line(), tooLong);
    EXPECT_TRUE(one.isClosed());
    EXPECT_TRUE(requests_.empty());
}

TEST_F(StatusServerTest, AnswersOthersWhileOneDoesNotRead) {
    auto lazy = client();
    EXPECT_TRUE(lazy.send("big\nbig\nbig\n"));
    auto other = client();
    EXPECT_EQ(other.ask("a"), "answer to a");
    EXPECT_EQ(requests_, (std::vector<std::string>{"big", "a"}))
        << "who does not take an answer is not given another one";
    EXPECT_EQ(lazy.line().size(), bigAnswer);
    EXPECT_EQ(lazy.line().size(), bigAnswer);
    EXPECT_EQ(lazy.line().size(), bigAnswer);
}

TEST_F(StatusServerTest, LeavesTheLoopInPeaceWhileAClientDoesNotRead) {
    auto lazy = client();
    EXPECT_TRUE(lazy.send("big\n"));
    loop_->dispatch(); // returns, so nothing is ready
    loop_->dispatch();
    EXPECT_EQ(server_->clients(), 1U);
}

TEST_F(StatusServerTest, ForgetsClientsThatGo) {
    {
        auto silent = client();
        auto asking = client();
        auto reading = client();
        EXPECT_TRUE(asking.send("half a li"));
        EXPECT_TRUE(reading.send("big\n"));
        loop_->dispatch();
        EXPECT_EQ(server_->clients(), 3U);
    }
    loop_->dispatch();
    EXPECT_EQ(server_->clients(), 0U);
}

TEST_F(StatusServerTest, DropsTheClientThatWasSilentForLongestWhenThereAreTooMany) {
    std::deque<LineClient> clients;
    for (std::size_t i = 0; i < StatusServer::maxClients; ++i) {
        clients.push_back(client());
        loop_->dispatch();
    }
    EXPECT_EQ(clients.front().ask("a"), "answer to a"); // so it is the second that is silent
    auto late = client();
    EXPECT_EQ(late.ask("b"), "answer to b");
    EXPECT_EQ(server_->clients(), StatusServer::maxClients);
    EXPECT_TRUE(clients[1].isClosed());
    EXPECT_EQ(clients.front().ask("c"), "answer to c");
}

TEST_F(StatusServerTest, GoesOnThroughAThousandConnections) {
    const std::size_t before = memoryOf(getpid(), "VmRSS");
    std::deque<LineClient> clients;
    for (int i = 0; i < 1000; ++i) {
        clients.push_back(client());
        ASSERT_TRUE(clients.back().isConnected()) << i;
        clients.back().sendSome(i % 2 == 0 ? "big\n" : "");
    }
    loop_->dispatch();
    EXPECT_LE(server_->clients(), StatusServer::maxClients);
    auto last = client();
    EXPECT_EQ(last.ask("a"), "answer to a");
    if (isMemoryReused) { // an answer for each of those that are served, and not for each that
                          // asked
        EXPECT_LE(memoryOf(getpid(), "VmRSS"), before + (StatusServer::maxClients + 2) * bigAnswer);
    }
}

TEST_F(StatusServerTest, ReplacesASocketThatNobodyServes) {
    server_ = nullptr;
    {
        const Zell::OwnedFd killed(socket(AF_UNIX, SOCK_STREAM, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path().copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(bind(killed.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
    }
    ASSERT_TRUE(directory_.has("socket"));
    start();
    EXPECT_EQ(client().ask("a"), "answer to a");
}

TEST_F(StatusServerTest, DoesNotTakeTheSocketFromSomebodyWhoServesIt) {
    try {
        const StatusServer second(
            loop_, path(), [](std::string_view) { return "second"; }, tooLong);
        FAIL() << "two servers";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code().value(), EADDRINUSE);
    }
    EXPECT_EQ(client().ask("a"), "answer to a");
}

TEST_F(StatusServerTest, RemovesItsSocketAtTheEnd) {
    server_ = nullptr;
    EXPECT_FALSE(directory_.has("socket"));
}

TEST_F(StatusServerTest, SaysWhyItCannotListen) {
    EXPECT_THROW(StatusServer(
                     loop_, "/nowhere/socket", [](std::string_view) { return ""; }, tooLong),
                 std::system_error);
    EXPECT_THROW(StatusServer(
                     loop_, std::string(200, 'p'), [](std::string_view) { return ""; }, tooLong),
                 std::system_error);
}

} // namespace

} // namespace Vestrel::Tests
