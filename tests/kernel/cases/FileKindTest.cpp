// SPDX-License-Identifier: Apache-2.0
// What the kernel says to files of every kind, and what the operator reads of it.
#include "tests/kernel/cases/KernelTest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace Vestrel::Tests {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t mostOfACertificate = 65535;
constexpr std::size_t mostOfAKey = 1024UL * 1024 - 1;

class FileKind : public EitherHostTest {
protected:
    void SetUp() override { start(); }

    // Waits for the refusal and makes sure that it leaves nothing and hurts nothing.
    void expectRefusal(const std::string& name, const std::string& cause) {
        const std::string message = refusal(file(name), cause);
        EXPECT_TRUE(eventually([&] { return !messages().empty(); })) << message;
        EXPECT_EQ(messages(), Lines{message});
        fs::remove_all(file(name));
        fence();
        EXPECT_TRUE(holdsOnly({}));
    }
};

TEST_P(FileKind, DerAndPemAreLoaded) {
    write(file("binary"), certificate("binary"));
    write(file("text"), bytesOf(toPem(certificate("text"))));
    write(file("commented"), bytesOf("subject=CN\n" + toPem(certificate("commented")) + "end\n"));
    EXPECT_TRUE(holdsOnly({"binary", "text", "commented"}));
}

TEST_P(FileKind, PemHasTheFirstOfItsCertificatesLoaded) {
    write(file("chain"), bytesOf(toPem(certificate("first")) + toPem(certificate("second"))));
    recorded("first");
    EXPECT_TRUE(holdsOnly({"first"}));
}

TEST_P(FileKind, ExpiredCertificateIsLoaded) {
    CertificatePlan plan;
    plan.subject = {{"CN", "expired"}};
    plan.notBefore = "000101000000Z";
    plan.notAfter = "010101000000Z";
    write(file("expired"), trustedAuthority().issue(plan));
    EXPECT_NE(recorded("expired"), 0);
}

TEST_P(FileKind, StrangerIsRefused) {
    CertificatePlan plan;
    plan.subject = {{"CN", "stranger"}};
    write(file("stranger"), unknownAuthority().issue(plan));
    expectRefusal("stranger", "Required key not available");
}

TEST_P(FileKind, TamperedCertificateIsRefused) {
    Bytes tampered = certificate("honest");
    const std::string name = "honest";
    const auto found = std::search(tampered.begin(), tampered.end(), name.begin(), name.end());
    ASSERT_NE(found, tampered.end());
    *found = 'x';
    write(file("tampered"), tampered);
    expectRefusal("tampered", "Key was rejected by service");
}

TEST_P(FileKind, TextIsRefused) {
    write(file("text"), bytesOf("no certificate"));
    expectRefusal("text", "Bad message");
}

TEST_P(FileKind, TruncatedCertificateIsRefused) {
    Bytes truncated = certificate("truncated");
    truncated.pop_back();
    write(file("truncated"), truncated);
    expectRefusal("truncated", "Bad message");
}

TEST_P(FileKind, EmptyFileIsRefused) {
    write(file("empty"), {});
    expectRefusal("empty", "Invalid argument");
}

TEST_P(FileKind, LargestCertificateIsJudgedByItsContent) {
    write(file("large"), Bytes(mostOfACertificate, 0x30));
    expectRefusal("large", "Bad message");
}

TEST_P(FileKind, FileLargerThanAnyCertificateIsRefused) {
    write(file("larger"), Bytes(mostOfACertificate + 1, 0x30));
    expectRefusal("larger", "Message too long");
}

TEST_P(FileKind, LargestKeyIsRefusedByTheKernel) {
    write(file("largest"), Bytes(mostOfAKey, 0x30));
    expectRefusal("largest", "Message too long");
}

TEST_P(FileKind, FileOf1MiBIsNotHandedToTheKernel) {
    write(file("too-large"), Bytes(mostOfAKey + 1, 0x30));
    expectRefusal("too-large", "File too large");
}

TEST_P(FileKind, DirectoryMovedInIsRefused) {
    fs::create_directories("/tmp/elsewhere/folder");
    fs::rename("/tmp/elsewhere/folder", file("folder"));
    expectRefusal("folder", "Is a directory");
}

TEST_P(FileKind, FifoMovedInIsRefusedWithoutWaiting) {
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    fs::rename("/tmp/fifo", file("fifo"));
    expectRefusal("fifo", "Invalid argument");
}

TEST_P(FileKind, DanglingLinkMovedInIsRefused) {
    fs::create_symlink("/nowhere", "/tmp/dangling");
    fs::rename("/tmp/dangling", file("dangling"));
    expectRefusal("dangling", "No such file or directory");
}

TEST_P(FileKind, ClosedFifoAndNewDirectoryAreNoFiles) {
    ASSERT_EQ(mkfifo(file("fifo").c_str(), 0600), 0);
    const int end = open(file("fifo").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_NE(end, -1);
    ASSERT_EQ(close(end), 0);
    fs::create_directories(file("folder"));
    fence();
    EXPECT_TRUE(traced("5 handleInotify: Non-regular file: \"" + file("fifo") + "\""));
    EXPECT_EQ(calls(), Lines{});
    EXPECT_EQ(messages(), Lines{});
}

VESTREL_WITH_EITHER_HOST(FileKind);

class BriefFile : public LibraryTest {};

TEST_F(BriefFile, IsSkippedWhenItIsGoneBeforeItsCloseIsHandled) {
    start();
    write(file("brief"), certificate("brief"));
    fs::remove(file("brief"));
    fence();
    EXPECT_TRUE(traced("5 handleInotify: Non-regular file: \"" + file("brief") + "\""));
    EXPECT_TRUE(holdsOnly({}));
}

} // namespace
} // namespace Vestrel::Tests
