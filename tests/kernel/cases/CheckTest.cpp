// SPDX-License-Identifier: Apache-2.0
// What is said of a certificate beforehand is what the kernel does with it.
#include "diagnosis/Diagnosis.h"
#include "keymodel/IntegrityKeyLoader.h"
#include "tests/kernel/cases/KernelTest.h"
#include "tests/support/CertificateVerdicts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace Vestrel::Tests {
namespace {

constexpr auto& keyringNames = IntegrityKeyringSm::keyringNames;

const std::string path = "/tmp/check";

Surroundings known(const std::vector<std::string>& issuers) {
    Surroundings known{kernelView(keyringNames), {}, std::time(nullptr)};
    known.stock.directoriesAdd(keyringNames);
    for (const std::string& issuer : issuers) {
        EXPECT_TRUE(known.stock.fileAdd(issuer)) << issuer;
    }
    return known;
}

// What the diagnosis says, and then what the kernel does.
struct Comparison {
    Diagnosis said;
    key_serial_t key = -1;
    int error = 0; // where there is no key
};

Comparison comparison(const std::string& keyring,
                      const std::vector<std::string>& issuers = {trust("ca.der")}) {
    Comparison result{diagnose(fileContent(path), keyring, known(issuers))};
    result.key = Orvo::makeNode<IntegrityKeyLoader>()->loadKey(path, keyring);
    result.error = result.key == -1 ? errno : 0;
    return result;
}

void expectAgreement(const Comparison& result) {
    const Finding& finding = result.said.finding;
    if (finding.verdict == Verdict::accepted) {
        EXPECT_NE(result.key, -1) << std::strerror(result.error)
                                  << ", but: " << finding.explanation;
        EXPECT_EQ(descriptionOf(result.key), result.said.description);
        return;
    }
    EXPECT_EQ(finding.verdict, Verdict::refused) << finding.explanation;
    EXPECT_EQ(result.key, -1) << finding.explanation;
    EXPECT_EQ(std::ranges::count(errorsOf(finding.reason), result.error), 1)
        << std::strerror(result.error) << ", but: " << finding.explanation;
}

class Check : public KernelTest {};

class CheckOf : public KernelTest, public testing::WithParamInterface<CertificateCase> {};

TEST_P(CheckOf, AgreesWithTheKernel) {
    write(path, GetParam().file(trustedAuthority(), unknownAuthority()));
    for (const char* const keyring : {".ima", ".secondary_trusted_keys"}) {
        SCOPED_TRACE(keyring);
        const Comparison result = comparison(keyring);
        EXPECT_EQ(nameOf(result.said.finding.reason), nameOf(GetParam().reason))
            << result.said.finding.explanation;
        expectAgreement(result);
    }
}

INSTANTIATE_TEST_SUITE_P(Certificates, CheckOf, testing::ValuesIn(certificateCases()),
                         [](const auto& test) {
                             std::string name = test.param.name;
                             std::ranges::replace(name, '-', '_');
                             return name;
                         });

// Algorithms that only an RSA key signs with, as the guest's authority has one.
TEST_F(Check, KnowsTheSignatureAlgorithmsThatTheKernelLacks) {
    for (const char* const hash : {"MD5", "SHA3-256", "RIPEMD160"}) {
        SCOPED_TRACE(hash);
        CertificatePlan plan;
        plan.hash = hash;
        write(path, trustedAuthority().issue(plan));
        const Comparison result = comparison(".ima");
        EXPECT_EQ(result.said.finding.reason, Reason::unsupportedAlgorithm);
        expectAgreement(result);
    }
}

// An authority of the second rank: .secondary_trusted_keys takes what it signs, .ima does not.
class CheckOfSecondRank : public KernelTest {
protected:
    void SetUp() override {
        CertificatePlan plan;
        plan.subject = {{"CN", "Middle"}};
        plan.keyIdentifier = KeyIdentifier::hashOfKey;
        const CertificateAuthority middle = trustedAuthority().intermediate(plan);
        Keyring::named(".secondary_trusted_keys").add(middle.certificate());
        write(issuer_, middle.certificate());
        write(path, middle.issue({}));
    }

    const std::string issuer_ = "/tmp/middle";
};

TEST_F(CheckOfSecondRank, SaysThatOneKeyringTakesItAndTheOtherDoesNot) {
    const Comparison secondary = comparison(".secondary_trusted_keys", {issuer_});
    EXPECT_EQ(secondary.said.finding.verdict, Verdict::accepted);
    expectAgreement(secondary);
    const Comparison ima = comparison(".ima", {issuer_});
    EXPECT_EQ(ima.said.finding.reason, Reason::noTrustedIssuer);
    EXPECT_NE(ima.said.finding.explanation.find(
                  "is not in .builtin_trusted_keys but in .secondary_trusted_keys"),
              std::string::npos)
        << ima.said.finding.explanation;
    expectAgreement(ima);
}

TEST_F(CheckOfSecondRank, CannotBeKnownWithoutTheIssuersCertificate) {
    const Comparison result = comparison(".secondary_trusted_keys", {});
    EXPECT_EQ(result.said.finding.verdict, Verdict::unknown);
    EXPECT_EQ(result.said.finding.reason, Reason::unverifiableSignature);
    EXPECT_NE(result.key, -1);
}

// Whose key it is the kernel sees without the description.
TEST_F(Check, CannotKnowWhoseAKeyWithANameOfItsOwnIs) {
    const char* const keyring = ".secondary_trusted_keys";
    CertificatePlan plan;
    plan.subject = {{"CN", "Middle"}};
    plan.keyIdentifier = KeyIdentifier::hashOfKey;
    const CertificateAuthority middle = trustedAuthority().intermediate(plan);
    const Bytes der = middle.certificate();
    ASSERT_NE(
        add_key("asymmetric", "our ca", der.data(), der.size(), Keyring::named(keyring).serial()),
        -1)
        << std::strerror(errno);
    for (const bool isItsKey : {true, false}) {
        write(path, (isItsKey ? middle : unknownAuthority()).issue({}));
        const Comparison result = comparison(keyring);
        EXPECT_EQ(result.said.finding.verdict, Verdict::unknown);
        EXPECT_NE(result.said.finding.explanation.find("a key named \"our ca\" in "),
                  std::string::npos)
            << result.said.finding.explanation;
        EXPECT_EQ(result.key != -1, isItsKey) << std::strerror(result.error);
    }
    write(path, certificate("one"));
    const Comparison ofAnother = comparison(keyring);
    EXPECT_EQ(ofAnother.said.finding.verdict, Verdict::accepted);
    expectAgreement(ofAnother);
}

TEST_F(Check, FindsTheIssuersCertificateInADirectory) {
    std::filesystem::create_directories(directory(".builtin_trusted_keys"));
    std::filesystem::copy(trust("ca.der"), file("ca.der", ".builtin_trusted_keys"));
    write(path, certificate("one"));
    const Comparison result = comparison(".ima", {});
    EXPECT_EQ(result.said.finding.verdict, Verdict::accepted);
    expectAgreement(result);
}

TEST_F(Check, SaysThatTheKernelAloneFillsItsOwnKeyrings) {
    write(path, certificate("one"));
    for (const char* const keyring : {".builtin_trusted_keys", ".machine"}) {
        SCOPED_TRACE(keyring);
        const Comparison result = comparison(keyring);
        EXPECT_EQ(result.said.finding.reason, Reason::protectedKeyring);
        expectAgreement(result);
    }
}

// Whoever asks for a keyring that was invalidated is told that there is none.
TEST(MissingKeyring, TakesNoCertificate) {
    if (testing::UnitTest::GetInstance()->test_to_run_count() != 1) {
        GTEST_SKIP() << "no other case can run after it: it has a machine of its own";
    }
    ASSERT_EQ(keyctl_invalidate(Keyring::named(".ima").serial()), 0) << std::strerror(errno);
    write(path, certificate("one"));
    const Comparison result = comparison(".ima");
    EXPECT_EQ(result.said.finding.reason, Reason::missingKeyring)
        << result.said.finding.explanation;
    EXPECT_EQ(result.error, ENOKEY);
    expectAgreement(result);
}

TEST_F(Check, SeesTheKernelsBlacklist) {
    const KernelView view = kernelView(keyringNames);
    EXPECT_NE(find_key_by_type_and_desc("keyring", ".blacklist", 0), -1);
    ASSERT_TRUE(view.blacklist);
    EXPECT_TRUE(view.blacklist->empty()) << "this kernel was built without one";
}

TEST_F(Check, SeesWhatTheKernelIs) {
    const KernelView view = kernelView(keyringNames);
    EXPECT_EQ(view.keyrings.size(), keyringNames.size());
    EXPECT_TRUE(view.isRoot);
    EXPECT_EQ(std::pair(view.major, view.minor), std::pair(6, 1));
    EXPECT_FALSE(view.isTrustNarrowed);
    ASSERT_TRUE(view.algorithms);
    EXPECT_TRUE(view.algorithms->contains("sha256"));
    EXPECT_TRUE(view.algorithms->contains("rsa"));
    const auto& secondary = view.keyring(".secondary_trusted_keys")->keyrings;
    EXPECT_EQ(std::ranges::count(secondary, ".builtin_trusted_keys"), 1);
    EXPECT_EQ(std::ranges::count(secondary, ".machine"), 1);
}

} // namespace
} // namespace Vestrel::Tests
