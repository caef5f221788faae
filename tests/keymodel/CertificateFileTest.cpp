// SPDX-License-Identifier: Apache-2.0
// Tests what is read from certificate files, what of PEM, and which errors name the causes.
#include "keymodel/CertificateFile.h"

#include "keymodel/CertificateDescription.h"
#include "platform/zell/OwnedFd.h"
#include "tests/support/CertificateMaker.h"
#include "tests/support/TempDir.h"
#include "tests/support/Unprivileged.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

namespace Vestrel::Tests {

namespace {

const Bytes der{0x30, 0x82, 0x00, 0x03, 0x01, 0x02, 0x03};
const Bytes otherDer{0x30, 0x82, 0x00, 0x03, 0x04, 0x05, 0x06};

std::string textOf(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

Bytes derOfText(const std::string& text) {
    return derOf(bytesOf(text));
}

// The cause of a failure to read; 0 when reading succeeded.
int errorOf(const std::string& path) {
    errno = 0;
    const auto content = readCertificateFile(path.c_str());
    const int cause = errno;
    EXPECT_EQ(content.has_value(), cause == 0) << path;
    return content ? 0 : cause;
}

std::string makeSparseFile(const TempDir& directory, std::uintmax_t size) {
    std::string path = directory.write("sparse", "");
    std::filesystem::resize_file(path, size);
    return path;
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

} // namespace

TEST(DerOf, ReturnsDerAsItIs) {
    EXPECT_EQ(derOf(der), der);
}

TEST(DerOf, DecodesPem) {
    EXPECT_EQ(derOfText(toPem(der)), der);
}

TEST(DerOf, DecodesPemWithCarriageReturns) {
    std::string pem = toPem(der);
    for (std::size_t at = pem.find('\n'); at != std::string::npos; at = pem.find('\n', at + 2)) {
        pem.insert(at, "\r");
    }
    EXPECT_EQ(derOfText(pem), der);
}

TEST(DerOf, DecodesPemWithoutALineEndAfterIt) {
    std::string pem = toPem(der);
    pem.pop_back();
    EXPECT_EQ(derOfText(pem), der);
}

TEST(DerOf, PassesOverTextAroundTheBlock) {
    EXPECT_EQ(derOfText("Subject: CN = Leaf\n\n" + toPem(der) + "and more\n"), der);
}

TEST(DerOf, TakesTheFirstOfSeveralCertificates) {
    EXPECT_EQ(derOfText(toPem(der) + toPem(otherDer)), der);
}

TEST(DerOf, PassesOverBlocksOfOtherKinds) {
    for (const char* label : {"PRIVATE KEY", "TRUSTED CERTIFICATE", "X509 CERTIFICATE",
                              "CERTIFICATE REQUEST", "X509 CRL", "NONSENSE"}) {
        EXPECT_EQ(derOfText(toPem(otherDer, label) + toPem(der)), der) << label;
    }
}

TEST(DerOf, PassesOverADamagedBlock) {
    const std::string damaged = "-----BEGIN CERTIFICATE-----\n*\n-----END CERTIFICATE-----\n";
    EXPECT_EQ(derOfText(damaged + toPem(der)), der);
}

TEST(DerOf, ReturnsAsItIsWhatHoldsNoCertificate) {
    const std::string pem = toPem(der);
    for (const std::string& text :
         {std::string(), std::string("0"), std::string("text\n"), toPem(der, "PRIVATE KEY"),
          toPem(der, "TRUSTED CERTIFICATE"), pem.substr(0, pem.find("-----END")),
          std::string("-----BEGIN CERTIFICATE-----\n"), std::string(4096, '\0'),
          std::string(maxCertificateFileSize, '-')}) {
        EXPECT_EQ(derOfText(text), bytesOf(text)) << text.substr(0, 80);
    }
}

TEST(DerOf, ReturnsShortSequencesAsTheyAre) {
    const Bytes shortSequence{0x30, 0x01, 0x00};
    EXPECT_EQ(derOf(shortSequence), shortSequence);
    EXPECT_EQ(derOf({0x30}), Bytes{0x30});
}

TEST(DerOf, TellsDerByItsFirstTwoBytes) {
    const std::string pem = toPem(otherDer);
    for (const std::string start : {"\x30\x80", "\x30\x82\x01", "\x30\xff"}) {
        EXPECT_EQ(derOfText(start + "\n" + pem), bytesOf(start + "\n" + pem));
    }
    for (const std::string start : {"0", "0\n", "01", "1\x82", "\x82\x30", "0a\x82"}) {
        EXPECT_EQ(derOfText(start + "\n" + pem), otherDer) << start;
    }
}

TEST(DerOf, LeavesTheErrorsThatOpenSslHadQueued) {
    ERR_clear_error();
    ERR_raise(ERR_LIB_USER, 1);
    derOfText("-----BEGIN CERTIFICATE-----\n*\n-----END CERTIFICATE-----\n");
    EXPECT_EQ(ERR_GET_LIB(ERR_get_error()), ERR_LIB_USER);
    EXPECT_EQ(ERR_get_error(), 0U);
}

TEST(ReadCertificateFile, ReturnsTheDerOfAFile) {
    const TempDir directory;
    EXPECT_EQ(readCertificateFile(directory.write("a", textOf(der)).c_str()), der);
    EXPECT_EQ(readCertificateFile(directory.write("b", toPem(der)).c_str()), der);
    EXPECT_EQ(readCertificateFile(directory.write("c", "text").c_str()), bytesOf("text"));
}

TEST(ReadCertificateFile, ReadsCertificatesThatCanBeDescribed) {
    const TempDir directory;
    const CertificateAuthority made = CertificateAuthority::generate();
    const std::string certificate = directory.write("ca.der", textOf(made.certificate()));
    const CertificateAuthority authority =
        CertificateAuthority::load(certificate, directory.write("ca.key", made.keyPem()));
    const std::string leaf = directory.write("leaf", toPem(authority.issue({})));
    const auto content = readCertificateFile(leaf.c_str());
    ASSERT_TRUE(content);
    EXPECT_EQ(certificateDescription(*content), "Leaf: a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3");
}

TEST(ReadCertificateFile, FollowsSymbolicLinks) {
    const TempDir directory;
    const std::string link = directory.makeSymlink("link", directory.write("a", textOf(der)));
    EXPECT_EQ(readCertificateFile(link.c_str()), der);
    EXPECT_EQ(errorOf(directory.makeSymlink("dangling", "nowhere")), ENOENT);
    EXPECT_EQ(errorOf(directory.makeSymlink("loop", "loop")), ELOOP);
}

TEST(ReadCertificateFile, NamesAMissingFile) {
    const TempDir directory;
    EXPECT_EQ(errorOf(directory.path("missing")), ENOENT);
    EXPECT_EQ(errorOf(directory.write("file", "x") + "/below"), ENOTDIR);
    EXPECT_EQ(errorOf(""), ENOENT);
}

TEST(ReadCertificateFile, NamesAnEmptyFile) {
    const TempDir directory;
    EXPECT_EQ(errorOf(directory.write("empty", "")), EINVAL);
}

TEST(ReadCertificateFile, NamesADirectory) {
    const TempDir directory;
    EXPECT_EQ(errorOf(directory.path()), EISDIR);
}

TEST(ReadCertificateFile, DoesNotWaitForTheWriterOfAFifo) {
    const TempDir directory;
    EXPECT_EQ(errorOf(directory.makeFifo("fifo")), EINVAL);
}

TEST(ReadCertificateFile, RefusesDevices) {
    EXPECT_EQ(errorOf("/dev/zero"), EINVAL);
}

TEST(ReadCertificateFile, RefusesSockets) {
    const TempDir directory;
    const Zell::OwnedFd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = directory.path("socket");
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size());
    ASSERT_EQ(::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(errorOf(path), ENXIO);
}

TEST(ReadCertificateFile, NamesAFileThatMayNotBeRead) {
    const TempDir directory;
    const std::string path = directory.write("secret", textOf(der));
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    const Unprivileged unprivileged;
    EXPECT_EQ(errorOf(path), EACCES);
}

TEST(ReadCertificateFile, ReadsAFileOfTheLargestSize) {
    const TempDir directory;
    const auto content =
        readCertificateFile(makeSparseFile(directory, maxCertificateFileSize).c_str());
    ASSERT_TRUE(content);
    EXPECT_EQ(content->size(), maxCertificateFileSize);
}

TEST(ReadCertificateFile, RefusesALargerFile) {
    const TempDir directory;
    EXPECT_EQ(errorOf(makeSparseFile(directory, maxCertificateFileSize + 1)), EFBIG);
    EXPECT_EQ(errorOf(makeSparseFile(directory, std::uintmax_t{8} << 30U)), EFBIG);
}

TEST(ReadCertificateFile, ReadsMoreThanTheFileWasSaidToHold) {
    const auto content = readCertificateFile("/proc/self/status"); // said to hold nothing
    ASSERT_TRUE(content);
    EXPECT_EQ(textOf(*content).substr(0, 5), "Name:");
}

TEST(ReadCertificateFile, StopsAtTheLargestSizeWhenAFileGoesOn) {
    if (::access("/proc/self/pagemap", R_OK) != 0) {
        GTEST_SKIP() << "needs /proc/self/pagemap, a file that is said to be empty and is not";
    }
    EXPECT_EQ(errorOf("/proc/self/pagemap"), EFBIG);
}

TEST(ReadCertificateFile, ReportsAFailedRead) {
    // Reading address 0 of one's own memory fails, after it was opened as a regular file.
    EXPECT_EQ(errorOf("/proc/self/mem"), EIO);
}

TEST(ReadCertificateFile, KeepsNoDescriptorOpen) {
    const TempDir directory;
    const std::string good = directory.write("good", textOf(der));
    const std::size_t before = openDescriptors();
    for (const std::string& path :
         {good, directory.path(), directory.makeFifo("fifo"), directory.write("empty", ""),
          directory.path("missing"), makeSparseFile(directory, maxCertificateFileSize + 1)}) {
        (void)readCertificateFile(path.c_str());
    }
    EXPECT_EQ(openDescriptors(), before);
}

} // namespace Vestrel::Tests
