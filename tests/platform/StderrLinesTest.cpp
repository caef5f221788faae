// SPDX-License-Identifier: Apache-2.0
// Tests of what goes to stderr, in which order and in how many pieces.
#include "platform/zell/StderrLines.h"

#include "platform/zell/Assertion.h"
#include "platform/zell/LogSinks.h"
#include "platform/zell/OwnedFd.h"
#include "tests/platform/LogTest.h"
#include "tests/platform/LoopTest.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <stdexcept>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

using Pieces = std::vector<std::string>;
using Zell::StderrLines;

// stderr while one lives: a socket that keeps what is written in the pieces of writing.
class Stderr {
public:
    Stderr() : kept_(dup(STDERR_FILENO)) {
        std::array<int, 2> ends{};
        EXPECT_EQ(
            socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
        reader_ = Zell::OwnedFd(ends[0]);
        const Zell::OwnedFd writer(ends[1]);
        dup2(writer.get(), STDERR_FILENO);
    }

    Stderr(const Stderr&) = delete;
    Stderr& operator=(const Stderr&) = delete;

    ~Stderr() { dup2(kept_.get(), STDERR_FILENO); }

    // Written since the last call.
    Pieces pieces() const {
        Pieces pieces;
        std::string buffer(65536, '\0');
        for (;;) {
            const ssize_t length = read(reader_.get(), buffer.data(), buffer.size());
            if (length <= 0) {
                return pieces;
            }
            pieces.push_back(buffer.substr(0, static_cast<std::size_t>(length)));
        }
    }

private:
    Zell::OwnedFd kept_;
    Zell::OwnedFd reader_;
};

class StderrLinesTest : public LoopTest {};

} // namespace

TEST_F(StderrLinesTest, AreWrittenAtOnceOutsideOfHandlers) {
    const Stderr output;
    StderrLines::put("one\n");
    EXPECT_EQ(output.pieces(), (Pieces{"one\n"}));
    StderrLines::putNow("two\n");
    EXPECT_EQ(output.pieces(), (Pieces{"two\n"}));
}

TEST_F(StderrLinesTest, OfOneHandlerAreWrittenTogetherAtItsEnd) {
    const Stderr output;
    for (const char* name : {"first", "second"}) {
        loop->soonIs([&output, name] {
            StderrLines::put(std::string(name) + " one\n");
            StderrLines::put(std::string(name) + " two\n");
            EXPECT_EQ(output.pieces(), Pieces());
        });
        loop->dispatch();
        EXPECT_EQ(output.pieces(), (Pieces{std::string(name) + " one\n" + name + " two\n"}));
    }
}

TEST_F(StderrLinesTest, AreWrittenWhenAHandlerThrows) {
    const Stderr output;
    loop->soonIs([] {
        StderrLines::put("before\n");
        throw std::runtime_error("handler");
    });
    EXPECT_THROW(loop->dispatch(), std::runtime_error);
    EXPECT_EQ(output.pieces(), (Pieces{"before\n"}));
}

TEST_F(StderrLinesTest, WaitForTheOutermostHolder) {
    const Stderr output;
    {
        const StderrLines::Together outer;
        {
            const StderrLines::Together inner;
            StderrLines::put("one\n");
        }
        EXPECT_EQ(output.pieces(), Pieces());
    }
    EXPECT_EQ(output.pieces(), (Pieces{"one\n"}));
}

TEST_F(StderrLinesTest, ThatCannotWaitTakeThoseBeforeAlong) {
    const Stderr output;
    const StderrLines::Together together;
    StderrLines::put("one\n");
    StderrLines::put("two\n");
    StderrLines::putNow("three\n");
    EXPECT_EQ(output.pieces(), (Pieces{"one\ntwo\n", "three\n"}));
}

TEST_F(StderrLinesTest, AreWrittenWholeInPiecesThatAPipeTakes) {
    const Stderr output;
    const std::string line = std::string(99, 'l') + '\n';
    std::string whole;
    {
        const StderrLines::Together together;
        for (int i = 0; i < 100; ++i) {
            StderrLines::put(line);
            whole += line;
        }
    }
    std::string seen;
    for (const std::string& piece : output.pieces()) {
        EXPECT_LE(piece.size(), std::size_t{PIPE_BUF});
        EXPECT_EQ(piece.size() % line.size(), 0U);
        seen += piece;
    }
    EXPECT_EQ(seen, whole);
}

TEST_F(StderrLinesTest, FillThePieceToTheLastByte) {
    const Stderr output;
    const StderrLines::Together together;
    const std::string half(PIPE_BUF / 2, 'h');
    StderrLines::put(half);
    StderrLines::put(half);
    EXPECT_EQ(output.pieces(), Pieces());
    StderrLines::put("next\n");
    EXPECT_EQ(output.pieces(), (Pieces{half + half}));
}

TEST_F(StderrLinesTest, LongerThanAPieceComeAfterThoseBefore) {
    const Stderr output;
    const StderrLines::Together together;
    const std::string longest(PIPE_BUF, 'f');
    StderrLines::put("one\n");
    StderrLines::put(longest + "\n");
    EXPECT_EQ(output.pieces(), (Pieces{"one\n", longest + "\n"}));
    StderrLines::put(longest); // as long as a piece, it waits
    EXPECT_EQ(output.pieces(), Pieces());
}

TEST_F(StderrLinesTest, HoldLogMessagesOfAHandler) {
    const Stderr output;
    loop->soonIs([&output] {
        Zell::stderrSink()({firstRecord, {}, "FIRST: one\n"});
        Zell::stderrSink()({firstRecord, {}, "FIRST: a\tb\n"});
        EXPECT_EQ(output.pieces(), Pieces());
    });
    loop->dispatch();
    EXPECT_EQ(output.pieces(), (Pieces{"FIRST: one\nFIRST: a\\x09b\n"}));
}

TEST_F(StderrLinesTest, AreWrittenBeforeAnAssertionEndsTheProcess) {
    const auto fail = [] {
        const StderrLines::Together together;
        StderrLines::put("what came before\n");
        Zell::assertionFailed("Source", 1, "operation", "expression");
    };
    EXPECT_DEATH(fail(), "what came before\nSource:1: operation: assertion failed: expression\n");
}

} // namespace Vestrel::Tests
