// SPDX-License-Identifier: Apache-2.0
// Tests of reading a file in pieces and beside interruptions, which needs the system's calls.
#include "keymodel/CertificateFile.h"
#include "platform/zell/OwnedFd.h"
#include "tests/fakes/SystemCalls.h"
#include "tests/keymodel/OpenCalls.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

// The number that the next descriptor gets.
int nextDescriptor() {
    return Zell::OwnedFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)).get();
}

std::string textOf(const std::optional<std::vector<std::uint8_t>>& content) {
    return content ? std::string(content->begin(), content->end()) : "nothing";
}

class ReadFileContent : public testing::Test {
protected:
    std::string read() const { return textOf(readFileContent(path_.c_str())); }

    const TempDir directory_;
    const std::string path_ = directory_.write("file", "content");
    SystemCalls systemCalls_;
};

TEST_F(ReadFileContent, GoesOnAfterAnInterruption) {
    systemCalls_.failNext("read", EINTR);
    EXPECT_EQ(read(), "content");
    EXPECT_EQ(systemCalls_.callsOf({"read"}).size(), 2U);
}

TEST_F(ReadFileContent, PutsPiecesTogether) {
    const int descriptor = nextDescriptor();
    for (const char* piece : {"a piece, ", "another, "}) {
        systemCalls_.feedRead(descriptor, piece);
    }
    EXPECT_EQ(read(), "a piece, another, content");
    EXPECT_EQ(systemCalls_.pending(), 0U);
}

TEST_F(ReadFileContent, EndsWhereTheFileHasBecomeShorter) {
    const int descriptor = nextDescriptor();
    systemCalls_.feedRead(descriptor, "cont");
    systemCalls_.feedReadEnd(descriptor);
    EXPECT_EQ(read(), "cont");
}

TEST_F(ReadFileContent, GivesUpAtAnErrorAfterAPiece) {
    const int descriptor = nextDescriptor();
    systemCalls_.feedRead(descriptor, "cont");
    systemCalls_.feedReadError(descriptor, EIO);
    errno = 0;
    EXPECT_EQ(read(), "nothing");
    EXPECT_EQ(errno, EIO);
}

TEST_F(ReadFileContent, AsksForTheEndOnlyWhereTheSizeWasNotRight) {
    EXPECT_EQ(read(), "content");
    EXPECT_EQ(systemCalls_.callsOf({"read"}).size(), 1U);
}

TEST_F(ReadFileContent, LeavesNoDescriptorToOtherProgramsAndWaitsForNobody) {
    EXPECT_EQ(read(), "content");
    EXPECT_EQ(lastOpenFlags(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

} // namespace

} // namespace Vestrel::Tests
