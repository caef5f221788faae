// SPDX-License-Identifier: Apache-2.0
// The description that is worked out from a certificate is the one the kernel gives to its key.
#include "keymodel/CertificateDescription.h"
#include "keymodel/CertificateFile.h"
#include "keymodel/IntegrityKeyLoader.h"
#include "tests/kernel/cases/KernelTest.h"
#include "tests/support/CertificateShapes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace Vestrel::Tests {
namespace {

const std::string path = "/tmp/shape";

std::string contentOf(const std::string& file) {
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

class Shape : public KernelTest, public testing::WithParamInterface<CertificateShape> {
protected:
    // What the kernel says to these bytes in that keyring, against what is expected of the shape.
    void expectAsTheKernelHasIt(const Keyring& ring, const Bytes& der) {
        const std::string computed = certificateDescription(der);
        errno = 0;
        const key_serial_t key = ring.tryAdd(der);
        const int cause = errno;
        EXPECT_EQ(key != -1, GetParam().kernelAccepts) << std::strerror(cause);
        if (key != -1) {
            EXPECT_EQ(descriptionOf(key), computed);
        } else {
            // What is damaged has no description; what is only of no use to this kernel has one.
            EXPECT_EQ(cause == EBADMSG, computed.empty()) << std::strerror(cause);
        }
    }

    const Bytes file_ = GetParam().file(trustedAuthority());
};

TEST_P(Shape, IsDescribedAsTheKernelDoesIt) {
    const Bytes der = derOf(file_);
    EXPECT_EQ(certificateDescription(der), GetParam().description);
    expectAsTheKernelHasIt(Keyring::named(".ima"), der);
    expectAsTheKernelHasIt(Keyring::made("free"), der);
}

TEST_P(Shape, IsLoadedFromAFileUnderItsDescription) {
    write(path, file_);
    const auto loader = Orvo::makeNode<IntegrityKeyLoader>();
    const Orvo::String computed = loader->getCertDescription(path);
    EXPECT_EQ(computed, Orvo::String(GetParam().description));
    const key_serial_t key = loader->loadKey(path, ".ima");
    EXPECT_EQ(key != -1, GetParam().kernelAccepts) << std::strerror(errno);
    if (key != -1) {
        EXPECT_EQ(Orvo::String(descriptionOf(key)), computed);
        EXPECT_EQ(Keyring::named(".ima").keys(), std::vector<key_serial_t>{key});
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Shape, testing::ValuesIn(certificateShapes()), [](const auto& test) {
    std::string name = test.param.name;
    std::ranges::replace(name, '-', '_');
    return name;
});

class IssuedCertificate : public KernelTest {};

TEST_F(IssuedCertificate, IsDescribedByTheHashOfItsKey) {
    for (const char* const name : {"leaf", "alpha", "twin-1"}) {
        const Bytes der = bytesOf(contentOf(trust(name + std::string(".der"))));
        std::string expected = contentOf(trust(name + std::string(".description")));
        expected.pop_back(); // the end of the line
        EXPECT_EQ(certificateDescription(der), expected);
        EXPECT_EQ(descriptionOf(Keyring::named(".ima").add(der)), expected);
    }
}

} // namespace
} // namespace Vestrel::Tests
