// SPDX-License-Identifier: Apache-2.0
// Tests that descriptions are those of the kernel, for certificates of every shape and for damage.
#include "keymodel/CertificateDescription.h"

#include "keymodel/CertificateFile.h"
#include "tests/support/CertificateMaker.h"
#include "tests/support/CertificateShapes.h"

#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

namespace {

const CertificateAuthority& authority() {
    static const CertificateAuthority made = CertificateAuthority::generate();
    return made;
}

Bytes leaf() {
    return authority().issue({});
}

const std::string leafDescription = "Leaf: a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3";

std::string describedWithTimes(const std::string& notBefore, const std::string& notAfter) {
    CertificatePlan plan;
    plan.notBefore = notBefore;
    plan.notAfter = notAfter;
    return certificateDescription(authority().issue(plan));
}

// As OpenSSL finds it in the certificate.
std::string hexKeyIdentifier(const Bytes& der) {
    const unsigned char* position = der.data();
    const X509Ptr certificate(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
    const std::unique_ptr<ASN1_OCTET_STRING, decltype(&ASN1_OCTET_STRING_free)> identifier(
        static_cast<ASN1_OCTET_STRING*>(
            X509_get_ext_d2i(certificate.get(), NID_subject_key_identifier, nullptr, nullptr)),
        ASN1_OCTET_STRING_free);
    std::string hex;
    for (int i = 0; i < ASN1_STRING_length(identifier.get()); ++i) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x",
                      ASN1_STRING_get0_data(identifier.get())[i]);
        hex += digits.data();
    }
    return hex;
}

std::string testNameOf(const testing::TestParamInfo<CertificateShape>& shape) {
    std::string name = shape.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

class CertificateShapeTest : public testing::TestWithParam<CertificateShape> {};

} // namespace

TEST_P(CertificateShapeTest, HasTheDescriptionThatTheKernelGives) {
    const Bytes file = GetParam().file(authority());
    EXPECT_EQ(certificateDescription(derOf(file)), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(CertificateDescription, CertificateShapeTest,
                         testing::ValuesIn(certificateShapes()), testNameOf);

TEST(CertificateDescription, CoversManyShapesUnderNamesOfTheirOwn) {
    const std::vector<CertificateShape> shapes = certificateShapes();
    std::set<std::string> names;
    for (const CertificateShape& shape : shapes) {
        names.insert(shape.name);
    }
    EXPECT_EQ(names.size(), shapes.size());
    EXPECT_GE(shapes.size(), 48U);
}

TEST(CertificateDescription, TakesTheIdentifierMadeOfTheKeysHash) {
    CertificatePlan plan;
    plan.keyIdentifier = KeyIdentifier::hashOfKey;
    for (const KeyKind kind : {KeyKind::p256, KeyKind::rsa2048}) {
        plan.key = kind;
        const Bytes der = authority().issue(plan);
        const std::string identifier = hexKeyIdentifier(der);
        ASSERT_EQ(identifier.size(), 40U);
        EXPECT_EQ(certificateDescription(der), "Leaf: " + identifier);
    }
}

TEST(CertificateDescription, DescribesASelfSignedAuthorityByItsSubject) {
    const Bytes der = authority().certificate();
    EXPECT_EQ(certificateDescription(der), "Vestrel tests: Authority: " + hexKeyIdentifier(der));
}

TEST(CertificateDescription, IsEmptyForEveryTruncation) {
    for (const KeyKind kind : {KeyKind::p256, KeyKind::rsa2048}) {
        CertificatePlan plan;
        plan.key = kind;
        const Bytes der = authority().issue(plan);
        for (std::size_t size = 0; size < der.size(); ++size) {
            const Bytes part(der.begin(), der.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(certificateDescription(part), "") << size;
        }
        EXPECT_EQ(certificateDescription(der), leafDescription);
    }
}

TEST(CertificateDescription, NeverTakesAMissingFirstPartForACertificate) {
    const Bytes der = leaf();
    for (std::size_t skipped = 1; skipped < der.size(); ++skipped) {
        const std::span<const std::uint8_t> part = std::span(der).subspan(skipped);
        EXPECT_EQ(certificateDescription(part), "") << skipped;
    }
}

TEST(CertificateDescription, SurvivesEveryChangedByte) {
    const Bytes der = leaf();
    std::size_t refused = 0;
    for (std::size_t at = 0; at < der.size(); ++at) {
        for (const std::uint8_t value : Bytes{0x00, 0x1f, 0x30, 0x7f, 0x80, 0x81, 0x84, 0xff}) {
            Bytes changed = der;
            changed[at] = value;
            refused += certificateDescription(changed).empty() ? 1U : 0U;
        }
    }
    EXPECT_GT(refused, der.size());
}

TEST(CertificateDescription, IsEmptyForOtherContent) {
    EXPECT_EQ(certificateDescription({}), "");
    EXPECT_EQ(certificateDescription(bytesOf("no certificate")), "");
    EXPECT_EQ(certificateDescription(bytesOf(toPem(leaf()))), "");
    EXPECT_EQ(certificateDescription(Bytes(4096, 0x30)), "");
    EXPECT_EQ(certificateDescription(Bytes(4096, 0x00)), "");
    EXPECT_EQ(certificateDescription(Bytes(4096, 0xff)), "");
}

TEST(CertificateDescription, CountsTrailingBytesAgainstTheLargestSize) {
    Bytes der = leaf();
    der.resize(65535);
    EXPECT_EQ(certificateDescription(der), leafDescription);
    der.push_back(0);
    EXPECT_EQ(certificateDescription(der), "");
}

TEST(CertificateDescription, AcceptsTimesThatTheKernelReads) {
    for (const char* good : {"700101000000Z", "991231235959Z", "000229000000Z", "240229000000Z",
                             "200101240000Z", "200101235960Z", "491231235959Z", "20500101000000Z",
                             "24000229000000Z", "99991231235959Z"}) {
        EXPECT_EQ(describedWithTimes(good, "491231235959Z"), leafDescription) << good;
        EXPECT_EQ(describedWithTimes("200101000000Z", good), leafDescription) << good;
    }
}

TEST(CertificateDescription, RefusesTimesThatTheKernelDoesNotRead) {
    for (const char* bad : {"500101000000Z",
                            "691231235959Z",
                            "200001000000Z",
                            "201301000000Z",
                            "200100000000Z",
                            "200132000000Z",
                            "200431000000Z",
                            "210229000000Z",
                            "200101250000Z",
                            "200101006000Z",
                            "200101000061Z",
                            "200101000000z",
                            "2001010000+0Z",
                            "20010100000 Z",
                            "2001010000Z",
                            "20200101000000Z",
                            "20491231235959Z",
                            "19500101000000Z",
                            "19491231235959Z",
                            "00010101000000Z",
                            "21000229000000Z",
                            "20500101000000.0Z",
                            "20500101000000",
                            "Z",
                            ""}) {
        EXPECT_EQ(describedWithTimes(bad, "491231235959Z"), "") << bad;
        EXPECT_EQ(describedWithTimes("200101000000Z", bad), "") << bad;
    }
}

// The certificate with one place changed; the sizes of all that is around stay true.
Bytes changed(const CertificatePlan& plan, const Bytes& from, const Bytes& to) {
    Bytes der = authority().issue(plan);
    const auto place = std::search(der.begin(), der.end(), from.begin(), from.end());
    EXPECT_NE(place, der.end()) << "the place to change is not there";
    EXPECT_EQ(from.size(), to.size());
    if (place != der.end() && from.size() == to.size()) {
        std::copy(to.begin(), to.end(), place);
    }
    return der;
}

TEST(CertificateDescription, RefusesACurveThatIsNotNamedInTheShortestForm) {
    const Bytes curve{0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07};
    EXPECT_EQ(certificateDescription(changed({}, curve, curve)), leafDescription);
    Bytes octets = curve;
    octets[0] = 0x04;
    EXPECT_EQ(certificateDescription(changed({}, curve, octets)), "");
    const Bytes longForm{0x06, 0x81, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01};
    EXPECT_EQ(certificateDescription(changed({}, curve, longForm)), "");
    const Bytes algorithm{0x30, 0x13, 0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01};
    Bytes withoutCurve = algorithm;
    withoutCurve[1] = 0x09;
    EXPECT_EQ(certificateDescription(changed({}, algorithm, withoutCurve)), "");
    const Bytes twoNulls{0x05, 0x00, 0x04, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    EXPECT_EQ(certificateDescription(changed({}, curve, twoNulls)), "") << "more than parameters";
}

TEST(CertificateDescription, RefusesTimesThatStandInNoSequence) {
    const Bytes validity{0x30, 0x1e, 0x17, 0x0d};
    EXPECT_EQ(certificateDescription(changed({}, validity, validity)), leafDescription);
    EXPECT_EQ(certificateDescription(changed({}, validity, {0x31, 0x1e, 0x17, 0x0d})), "");
}

TEST(CertificateDescription, RefusesAThirdTime) {
    CertificatePlan plan;
    plan.notAfter = "20991231235959Z";
    const Bytes generalized = bytesOf("\x18\x0f" + plan.notAfter);
    Bytes followed = bytesOf("\x17\x0d" + std::string("491231235959Z"));
    EXPECT_EQ(certificateDescription(changed(plan, generalized, generalized)), leafDescription);
    followed.insert(followed.end(), {0x05, 0x00});
    EXPECT_EQ(certificateDescription(changed(plan, generalized, followed)), "");
}

TEST(CertificateDescription, RefusesACriticalFlagThatIsMalformed) {
    CertificatePlan plan;
    plan.extensions = {{"1.3.6.1.4.1.55555.2", {0x05, 0x00}, true}};
    const Bytes flag{0x01, 0x01, 0xff, 0x04, 0x02, 0x05, 0x00};
    EXPECT_EQ(certificateDescription(changed(plan, flag, flag)), leafDescription);
    Bytes longer = flag;
    longer[1] = 0x7f;
    EXPECT_EQ(certificateDescription(changed(plan, flag, longer)), "");
}

TEST(CertificateDescription, RefusesUniqueIdentifiersThatAreMalformed) {
    Bytes der = leaf();
    const Bytes point{0x03, 0x42, 0x00, 0x04}; // the public key, which the extensions follow
    const auto key = std::search(der.begin(), der.end(), point.begin(), point.end());
    ASSERT_NE(key, der.end());
    const auto extensions = key + 2 + 0x42;
    ASSERT_EQ(*extensions, 0xa3);
    for (const std::uint8_t identifier : {std::uint8_t{0x81}, std::uint8_t{0x82}}) {
        extensions[0] = identifier;
        EXPECT_EQ(certificateDescription(der), "Leaf: 1234") << "skipped, and no extension is left";
        const std::uint8_t size = std::exchange(extensions[1], 0x7f);
        EXPECT_EQ(certificateDescription(der), "");
        extensions[1] = size;
    }
}

TEST(CertificateDescription, ReadsAnAuthorityIdentifierAsNarrowlyAsTheKernel) {
    const std::vector<std::pair<Bytes, bool>> values{
        {{0x30, 0x00}, true},
        {{0x30, 0x03, 0x80, 0x01, 0xaa}, true},
        {{0x30, 0x02, 0xa1, 0x00}, true},
        {{0x30, 0x07, 0xa1, 0x05, 0xa6, 0x03, 0x16, 0x01, 'u'}, true},
        {{0x30, 0x05, 0xa1, 0x03, 0x86, 0x01, 'u'}, false}, // the usual form of a name of this kind
        {{0x30, 0x07, 0xa1, 0x05, 0xa6, 0x03, 0x0c, 0x01, 'u'}, false},
        {{0x30, 0x05, 0xa1, 0x03, 0xa9, 0x01, 'u'}, false},
        {{0x30, 0x03, 0x82, 0x01, 0x05}, true},
        {{0x30, 0x03, 0x83, 0x01, 0x05}, false},
        {{0x30, 0x03, 0x80, 0x02, 0xaa}, false},
        {{0x30, 0x00, 0xff}, true},
        {{0x30, 0x02, 0xa1, 0x01}, false},                                     // cut
        {{0x30, 0x06, 0xa1, 0x04, 0xa1, 0x02, 0x16, 0x00}, true},              // mail address
        {{0x30, 0x06, 0xa1, 0x04, 0xa0, 0x02, 0x05, 0x00}, true},              // anything
        {{0x30, 0x08, 0xa1, 0x06, 0xa0, 0x04, 0x05, 0x00, 0x05, 0x00}, false}, // and more
        {{0x30, 0x06, 0xa1, 0x04, 0xa0, 0x02, 0x05, 0x01}, false},             // cut
        {{0x30, 0x04, 0xa1, 0x02, 0xa0, 0x01}, false},                         // cut
        {{0x30, 0x08, 0xa1, 0x06, 0xa4, 0x04, 0x30, 0x02, 0x31, 0x00}, false}, // empty name
        {{0x30, 0x03, 0x82, 0x02, 0x05}, false},                               // cut
        {{}, false},
    };
    CertificatePlan plan;
    plan.authorityIdentifier = AuthorityIdentifier::none;
    for (std::size_t i = 0; i < values.size(); ++i) {
        plan.extensions = {{"2.5.29.35", values[i].first}};
        EXPECT_EQ(certificateDescription(authority().issue(plan)),
                  values[i].second ? leafDescription : "")
            << "value " << i;
    }
}

} // namespace Vestrel::Tests
