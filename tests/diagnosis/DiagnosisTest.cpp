// SPDX-License-Identifier: Apache-2.0
// What is said of certificates, for kernels that are made up here. The cases of tests/kernel show
// that the real one does so.
#include "diagnosis/DiagnosisText.h"
#include "diagnosis/SignatureCheck.h"
#include "keymodel/CertificateDescription.h"
#include "keymodel/CertificateFile.h"
#include "tests/support/CertificateVerdicts.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace Vestrel::Tests {

namespace {

using testing::HasSubstr;

constexpr std::time_t inTheYear2026 = 1795000000;

const CertificateAuthority& trusted() {
    static const auto authority = CertificateAuthority::generate();
    return authority;
}

const CertificateAuthority& unknown() {
    static const auto authority = CertificateAuthority::generate("Stranger");
    return authority;
}

std::string text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

KeyringView keyring(const std::string& name, bool isWritable, std::vector<std::string> keys = {},
                    std::vector<std::string> keyrings = {}) {
    return {name, 0, isWritable, std::move(keys), std::move(keyrings)};
}

// Root on kernel 6.1 with the four keyrings; the trusted authority's key is in the first rank.
KernelView usualKernel() {
    KernelView kernel;
    kernel.keyrings = {
        keyring(".ima", true),
        keyring(".secondary_trusted_keys", true, {}, {".builtin_trusted_keys", ".machine"}),
        keyring(".builtin_trusted_keys", false, {certificateDescription(trusted().certificate())}),
        keyring(".machine", false)};
    kernel.isRoot = true;
    kernel.major = 6;
    kernel.minor = 1;
    kernel.algorithms = {"sha1", "sha224", "sha256", "sha384", "sha512", "rsa", "ecdsa-nist-p256"};
    kernel.blacklist.emplace();
    return kernel;
}

class DiagnosisTest : public testing::Test {
protected:
    DiagnosisTest() {
        known_.kernel = usualKernel();
        known_.now = inTheYear2026;
        issuerIs("trusted", trusted().certificate());
        std::filesystem::create_directories("/etc/keys/ima");
    }

    ~DiagnosisTest() override { std::filesystem::remove_all("/etc/keys"); }

    void issuerIs(const std::string& name, const Bytes& der) {
        EXPECT_TRUE(known_.stock.fileAdd(files_.write(name, text(der))));
    }

    void noIssuers() { known_.stock = CertificateStock(); }

    KeyringView& ring(const std::string& name) {
        return *std::ranges::find(known_.kernel.keyrings, name, &KeyringView::name);
    }

    Diagnosis said(const Bytes& content, const std::string& keyring = ".ima") const {
        return diagnose(fileContent(files_.write("file", text(content))), keyring, known_);
    }

    // Of the usual certificate of the trusted authority.
    Finding finding(const std::string& keyring = ".ima") const {
        return said(trusted().issue({}), keyring).finding;
    }

    void expectUnknown(const std::string& explanation, Reason reason) const {
        EXPECT_EQ(finding().verdict, Verdict::unknown);
        EXPECT_EQ(nameOf(finding().reason), nameOf(reason));
        EXPECT_THAT(finding().explanation, HasSubstr(explanation));
    }

    TempDir files_;
    Surroundings known_;
};

class DiagnosisOf : public DiagnosisTest, public testing::WithParamInterface<CertificateCase> {};

TEST_P(DiagnosisOf, IsAsTheTableHasIt) {
    const Bytes content = GetParam().file(trusted(), unknown());
    for (const char* const keyring : {".ima", ".secondary_trusted_keys"}) {
        const Diagnosis diagnosis = said(content, keyring);
        EXPECT_EQ(nameOf(diagnosis.finding.reason), nameOf(GetParam().reason))
            << diagnosis.finding.explanation;
        EXPECT_EQ(diagnosis.finding.verdict,
                  GetParam().reason == Reason::none ? Verdict::accepted : Verdict::refused);
    }
}

INSTANTIATE_TEST_SUITE_P(Certificates, DiagnosisOf, testing::ValuesIn(certificateCases()),
                         [](const auto& test) {
                             std::string name = test.param.name;
                             std::ranges::replace(name, '-', '_');
                             return name;
                         });

TEST_F(DiagnosisTest, NamesTheTrustedKeyOfAnAcceptedOne) {
    const Diagnosis diagnosis = said(trusted().issue({}));
    EXPECT_EQ(diagnosis.description, "Leaf: a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3");
    EXPECT_EQ(diagnosis.finding.explanation, "signed by \"" +
                                                 certificateDescription(trusted().certificate()) +
                                                 "\" in .builtin_trusted_keys");
    EXPECT_EQ(diagnosis.issuer + ": " + diagnosis.issuerKeyIdentifier,
              certificateDescription(trusted().certificate()));
    EXPECT_EQ(diagnosis.trusted, std::vector<std::string>{".builtin_trusted_keys"});
    EXPECT_FALSE(diagnosis.isInKeyring);
}

TEST_F(DiagnosisTest, NamesTheMissingIssuerAndWhereItWouldHaveToBe) {
    const Diagnosis diagnosis = said(unknown().issue({}), ".secondary_trusted_keys");
    EXPECT_EQ(diagnosis.finding.explanation,
              "its issuer \"Vestrel tests: Stranger\" (key identifier " +
                  diagnosis.issuerKeyIdentifier +
                  ") is not in .secondary_trusted_keys, .builtin_trusted_keys or .machine");
}

TEST_F(DiagnosisTest, SaysWhereElseTheIssuerIs) {
    ring(".machine").keys = {certificateDescription(unknown().certificate())};
    const Diagnosis diagnosis = said(unknown().issue({}));
    EXPECT_EQ(diagnosis.finding.verdict, Verdict::refused);
    EXPECT_THAT(diagnosis.finding.explanation,
                HasSubstr("is not in .builtin_trusted_keys but in .machine"));
}

TEST_F(DiagnosisTest, IsUnknownWithoutTheIssuersCertificate) {
    noIssuers();
    expectUnknown("cannot be known without the issuer's certificate",
                  Reason::unverifiableSignature);
}

TEST_F(DiagnosisTest, TakesNoIssuersCertificateToKnowAStranger) {
    noIssuers();
    EXPECT_EQ(said(unknown().issue({})).finding.reason, Reason::noTrustedIssuer);
}

TEST_F(DiagnosisTest, IsUnknownWithoutTheIssuersCertificateWhereOnlyItsNameIsGiven) {
    noIssuers();
    CertificatePlan plan;
    plan.authorityIdentifier = AuthorityIdentifier::none;
    EXPECT_EQ(said(trusted().issue(plan)).finding.reason, Reason::unverifiableSignature);
    ring(".builtin_trusted_keys").keys = {"Another: 0011"};
    EXPECT_EQ(said(trusted().issue(plan)).finding.reason, Reason::noTrustedIssuer);
}

TEST_F(DiagnosisTest, IsUnknownWhereTwoIssuersOfOneDescriptionDiffer) {
    CertificatePlan plan;
    plan.subject = {{"O", "Vestrel tests"}, {"CN", "Authority"}};
    plan.keyIdentifier = KeyIdentifier::given;
    // The trusted authority's description with another key.
    const std::string description = certificateDescription(trusted().certificate());
    const std::string hex = description.substr(description.rfind(' ') + 1);
    plan.keyIdentifierBytes.clear();
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        plan.keyIdentifierBytes.push_back(
            static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    issuerIs("twin", unknown().issue(plan));
    expectUnknown("cannot be known", Reason::unverifiableSignature);
}

TEST_F(DiagnosisTest, IsUnknownWhereATrustedKeyHasANameOfItsOwn) {
    for (const char* const name : {"our ca", "our ca: ", "our: key", "our ca: 0x11", "0011"}) {
        SCOPED_TRACE(name);
        ring(".secondary_trusted_keys").keys = {"Another: 0011", name};
        const Diagnosis diagnosis = said(unknown().issue({}), ".secondary_trusted_keys");
        EXPECT_EQ(diagnosis.finding.verdict, Verdict::unknown);
        EXPECT_EQ(diagnosis.finding.reason, Reason::unverifiableSignature);
        EXPECT_EQ(diagnosis.finding.explanation,
                  "a key named \"" + std::string(name) +
                      "\" in .secondary_trusted_keys may be its issuer \"" + diagnosis.issuer +
                      "\" (key identifier " + diagnosis.issuerKeyIdentifier +
                      "); that key's identifier is not shown");
        EXPECT_EQ(finding(".secondary_trusted_keys").verdict, Verdict::accepted)
            << "which another key has signed";
        EXPECT_EQ(finding().verdict, Verdict::accepted) << "which .ima does not trust";
        EXPECT_EQ(said(unknown().issue({})).finding.reason, Reason::noTrustedIssuer);
    }
    ring(".secondary_trusted_keys").keys = {"our ca: 0011"};
    EXPECT_EQ(finding(".secondary_trusted_keys").verdict, Verdict::accepted);
}

TEST_F(DiagnosisTest, IsUnknownWhereAKeyWithANameOfItsOwnMayCountToo) {
    ring(".machine").error = ENOKEY;
    ring(".secondary_trusted_keys").keys = {"our ca"};
    const Finding stranger = said(unknown().issue({})).finding;
    EXPECT_EQ(nameOf(stranger.reason), nameOf(Reason::unknownRule));
    EXPECT_THAT(stranger.explanation,
                HasSubstr("identifier is not shown, nor whether it counts for .ima"));
    EXPECT_EQ(finding().verdict, Verdict::accepted);
}

TEST_F(DiagnosisTest, FindsTheIssuersCertificateInADirectory) {
    noIssuers();
    std::filesystem::create_directories("/etc/keys/builtin_trusted_keys");
    std::filesystem::copy(files_.path("trusted"), "/etc/keys/builtin_trusted_keys/ca.der");
    const char* const name = ".builtin_trusted_keys";
    known_.stock.directoriesAdd({&name, 1});
    EXPECT_EQ(finding().verdict, Verdict::accepted);
}

TEST_F(DiagnosisTest, TakesEveryIssuerOfAPemFile) {
    noIssuers();
    issuerIs("chain", bytesOf(toPem(unknown().certificate()) + toPem(trusted().certificate())));
    EXPECT_EQ(known_.stock.certificates().size(), 2U);
    EXPECT_EQ(finding().verdict, Verdict::accepted);
}

TEST_F(DiagnosisTest, TakesAnIssuerBehindOtherBlocksOnce) {
    noIssuers();
    const std::string key = toPem(bytesOf("no certificate"), "PUBLIC KEY");
    issuerIs("chain", bytesOf(key + "-----END \n" + key + toPem(trusted().certificate()) + key));
    EXPECT_EQ(known_.stock.certificates().size(), 1U);
    EXPECT_EQ(finding().verdict, Verdict::accepted);
}

// Looked at from every end line on, this file would take many minutes.
TEST_F(DiagnosisTest, ReadsAFileOfEndLinesOnce) {
    noIssuers();
    const std::string issuer = toPem(trusted().certificate());
    const std::string endLine = "-----END \n";
    std::string file = issuer;
    while (file.size() + endLine.size() + issuer.size() <= maxCertificateFileSize) {
        file += endLine;
    }
    issuerIs("chain", bytesOf(file + issuer));
    EXPECT_EQ(known_.stock.certificates().size(), 2U);
    EXPECT_EQ(finding().verdict, Verdict::accepted);
}

TEST_F(DiagnosisTest, RefusesWhatIsBlacklisted) {
    const Bytes der = trusted().issue({});
    const auto certificate = readCertificate(der);
    ASSERT_TRUE(certificate);
    const auto hash = hashOfSigned(*certificate, *signatureAlgorithm(*certificate));
    known_.kernel.blacklist->insert("tbs:" + hash.value());
    EXPECT_EQ(said(der).finding.reason, Reason::blacklisted);
    known_.kernel.blacklist = {"bin:" + *hash, "tbs:00"};
    EXPECT_EQ(said(der).finding.verdict, Verdict::accepted);
}

TEST_F(DiagnosisTest, IsUnknownWhereTheBlacklistCannotBeRead) {
    known_.kernel.blacklist.reset();
    expectUnknown(".blacklist cannot be read", Reason::invisibleKeyring);
}

TEST_F(DiagnosisTest, RefusesForAKeyringThatTheKernelLacks) {
    ring(".ima").error = ENOKEY;
    EXPECT_EQ(finding().reason, Reason::missingKeyring);
    EXPECT_EQ(said(bytesOf("garbage")).finding.reason, Reason::missingKeyring)
        << "the kernel does not come to read it";
    EXPECT_EQ(said({}).finding.reason, Reason::emptyFile) << "the agent does not offer it";
}

TEST_F(DiagnosisTest, RefusesForAKeyringThatOnlyTheKernelFills) {
    EXPECT_EQ(finding(".machine").reason, Reason::protectedKeyring);
    EXPECT_EQ(finding(".builtin_trusted_keys").reason, Reason::protectedKeyring);
}

TEST_F(DiagnosisTest, DoesNotJudgeForKeyringsWithRulesOfTheirOwn) {
    EXPECT_EQ(finding(".platform").reason, Reason::unknownRule);
}

TEST_F(DiagnosisTest, OfAnUnprivilegedUserIsUnknownWhereHeSeesNothing) {
    known_.kernel.isRoot = false;
    ring(".ima").error = ENOKEY;
    expectUnknown("only root can see .ima", Reason::invisibleKeyring);
    EXPECT_EQ(said(bytesOf("garbage")).finding.reason, Reason::notACertificate)
        << "which takes no keyring to know";
    ring(".ima").error = 0;
    ring(".ima").isWritable = false;
    expectUnknown("only root may write to .ima", Reason::invisibleKeyring);
}

TEST_F(DiagnosisTest, IsUnknownWhereTheTrustedKeyringCannotBeRead) {
    ring(".builtin_trusted_keys").error = EACCES;
    ring(".builtin_trusted_keys").keys.clear();
    expectUnknown("can be read", Reason::invisibleKeyring);
    ring(".ima").error = EACCES;
    expectUnknown(".ima cannot be read: Permission denied", Reason::invisibleKeyring);
}

TEST_F(DiagnosisTest, IsUnknownWhereTheKernelMayTrustMoreThanItSays) {
    ring(".machine").error = ENOKEY;
    ring(".secondary_trusted_keys").keys = {certificateDescription(unknown().certificate())};
    const Finding finding = said(unknown().issue({})).finding;
    EXPECT_EQ(finding.verdict, Verdict::unknown);
    EXPECT_THAT(finding.explanation,
                HasSubstr("but in .secondary_trusted_keys; whether that counts for .ima"));
    ring(".secondary_trusted_keys").keys.clear();
    EXPECT_EQ(said(unknown().issue({})).finding.reason, Reason::noTrustedIssuer);
}

TEST_F(DiagnosisTest, IsUnknownWhereTheCommandLineNarrowsTheTrust) {
    known_.kernel.isTrustNarrowed = true;
    expectUnknown("ca_keys=", Reason::unknownRule);
}

TEST_F(DiagnosisTest, IsUnknownForKernelsWithOtherRules) {
    known_.kernel.minor = 0;
    expectUnknown("the rules of kernel 6.0 are not known", Reason::unknownRule);
    known_.kernel.minor = 12;
    expectUnknown("digital signatures only", Reason::unknownRule);
    CertificatePlan plan;
    plan.extensions = {{"keyUsage", {0x03, 0x02, 0x07, 0x80}, true}};
    EXPECT_EQ(said(trusted().issue(plan)).finding.verdict, Verdict::accepted);
    plan.key = KeyKind::p521;
    EXPECT_EQ(said(trusted().issue(plan)).finding.verdict, Verdict::unknown);
    EXPECT_EQ(said(unknown().issue({})).finding.verdict, Verdict::refused);
}

TEST_F(DiagnosisTest, IsUnknownWithoutTheAlgorithmsOfTheKernel) {
    known_.kernel.algorithms->erase("ecdsa-nist-p256");
    expectUnknown("whether this kernel has ecdsa-nist-p256", Reason::unknownRule);
    known_.kernel.algorithms->erase("sha256");
    expectUnknown("whether this kernel has sha256", Reason::unknownRule);
    known_.kernel.algorithms.reset();
    expectUnknown("whether this kernel has sha256", Reason::unknownRule);
}

TEST_F(DiagnosisTest, SaysHowMuchOfACutCertificateIsThere) {
    Bytes der = trusted().issue({});
    const std::string size = std::to_string(der.size());
    der.resize(100);
    EXPECT_EQ(said(der).finding.explanation, "cut short: it has 100 of " + size + " bytes");
}

TEST_F(DiagnosisTest, SaysWhyAFileCannotBeRead) {
    const auto of = [&](const std::string& path) {
        return diagnose(fileContent(path), ".ima", known_).finding;
    };
    EXPECT_EQ(of(files_.path("absent")).explanation,
              "it cannot be read: No such file or directory");
    EXPECT_EQ(of(files_.makeDirectory("folder")).explanation, "it cannot be read: Is a directory");
    EXPECT_EQ(of(files_.makeFifo("fifo")).explanation, "not a regular file");
    EXPECT_EQ(of(files_.path("absent")).reason, Reason::unreadableFile);
}

TEST_F(DiagnosisTest, RemarksWhatTheKernelIgnores) {
    CertificatePlan plan;
    plan.notBefore = "200101000000Z";
    plan.notAfter = "210203000000Z";
    EXPECT_THAT(said(trusted().issue(plan)).remarks,
                testing::ElementsAre("it expired on 2021-02-03, which the kernel ignores",
                                     "its key usage does not include digital signature, "
                                     "which the kernel ignores"));
    plan.notBefore = "480101000000Z";
    plan.notAfter = "20500101000000Z";
    plan.extensions = {{"keyUsage", {0x03, 0x02, 0x07, 0x80}, true}};
    EXPECT_THAT(said(trusted().issue(plan)).remarks,
                testing::ElementsAre("it is valid from 2048-01-01, which the kernel ignores"));
    plan = {};
    plan.extensions = {{"keyUsage", {0x03, 0x02, 0x07, 0x80}, true}};
    EXPECT_THAT(said(trusted().issue(plan)).remarks, testing::IsEmpty());
    EXPECT_THAT(said(trusted().certificate()).remarks,
                testing::ElementsAre("it is an authority's certificate, not one for signing "
                                     "files, which the kernel ignores"));
    known_.kernel.minor = 12;
    EXPECT_THAT(said(trusted().issue({})).remarks,
                testing::ElementsAre("its key usage does not include digital signature"));
    EXPECT_THAT(said(trusted().issue({}), ".secondary_trusted_keys").remarks,
                testing::ElementsAre("its key usage does not include digital signature, which the "
                                     "kernel ignores"));
}

TEST_F(DiagnosisTest, NamesTheFilesThatCarryTheSameKey) {
    const std::string first = "/etc/keys/ima/first";
    const std::string second = "/etc/keys/ima/second";
    files_.write("der", text(trusted().issue({})));
    std::filesystem::copy(files_.path("der"), first);
    std::filesystem::copy(files_.path("der"), second);
    const char* const name = ".ima";
    known_.stock.directoriesAdd({&name, 1});
    EXPECT_THAT(said(trusted().issue({})).carriedBy, testing::ElementsAre(first, second));
    EXPECT_THAT(diagnose(fileContent(first), ".ima", known_).carriedBy,
                testing::ElementsAre(second))
        << "itself left out";
    EXPECT_THAT(said(trusted().issue({}), ".secondary_trusted_keys").carriedBy, testing::IsEmpty());
    EXPECT_THAT(diagnose(fileContent("/etc/keys/ima/../ima/first"), ".ima", known_).carriedBy,
                testing::ElementsAre(second));
    ring(".ima").keys = {said(trusted().issue({})).description};
    EXPECT_TRUE(said(trusted().issue({})).isInKeyring);
}

TEST_F(DiagnosisTest, CountsALinkToAFileAsAnother) {
    files_.write("der", text(trusted().issue({})));
    std::filesystem::copy(files_.path("der"), "/etc/keys/ima/first");
    std::filesystem::create_hard_link("/etc/keys/ima/first", "/etc/keys/ima/second");
    const char* const name = ".ima";
    known_.stock.directoriesAdd({&name, 1});
    const Diagnosis first = diagnose(fileContent("/etc/keys/ima/first"), ".ima", known_);
    EXPECT_THAT(first.carriedBy, testing::ElementsAre("/etc/keys/ima/second"));
    std::filesystem::remove("/etc/keys/ima/first");
    EXPECT_THAT(known_.stock.carriers(".ima", first.description, "/etc/keys/ima/first"),
                testing::ElementsAre("/etc/keys/ima/second"))
        << "and knows it when it is gone";
}

TEST_F(DiagnosisTest, HasANameAndItsErrorsForEveryReason) {
    std::set<std::string_view> names;
    for (int i = 0; i <= static_cast<int>(Reason::unknownRule); ++i) {
        names.insert(nameOf(static_cast<Reason>(i)));
    }
    EXPECT_EQ(names.size(), static_cast<std::size_t>(Reason::unknownRule) + 1);
    EXPECT_EQ(errorsOf(Reason::noTrustedIssuer), std::vector<int>{ENOKEY});
    EXPECT_EQ(errorsOf(Reason::none), std::vector<int>{});
}

const Bytes sha256WithRsa{0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x01, 0x0b};

// The kernel compares the bytes of an identifier, not its numbers.
TEST(SignatureAlgorithm, IsKnownInItsOwnBytesOnly) {
    CertificateFields certificate;
    certificate.signatureAlgorithm = sha256WithRsa;
    ASSERT_TRUE(signatureAlgorithm(certificate));
    EXPECT_EQ(signatureAlgorithm(certificate)->hash, "sha256");
    Bytes unfinished = sha256WithRsa;
    unfinished.push_back(0x81);
    Bytes padded = sha256WithRsa;
    padded.insert(padded.end() - 1, 0x80);
    Bytes overflown = sha256WithRsa; // 2^63 and 11
    overflown.insert(overflown.end() - 1, {0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80});
    Bytes wrapped = sha256WithRsa; // 2^64 and 11
    wrapped.insert(wrapped.end() - 1, {0x82, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80});
    for (const Bytes& bytes : {unfinished, padded, overflown, wrapped, Bytes()}) {
        certificate.signatureAlgorithm = bytes;
        EXPECT_FALSE(signatureAlgorithm(certificate)) << hexOf(bytes);
        EXPECT_EQ(algorithmText(bytes), hexOf(bytes));
        EXPECT_FALSE(keyAlgorithm({.encoding = {}, .algorithm = bytes, .curve = {}}));
    }
}

TEST(SignatureAlgorithm, IsShownByNameOrNumbers) {
    EXPECT_EQ(algorithmText(sha256WithRsa), "sha256WithRSAEncryption");
    EXPECT_EQ(algorithmText(Bytes{0x2a, 0x03, 0x04}), "1.2.3.4");
    EXPECT_EQ(algorithmText(Bytes{0x2a, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x7f}),
              "1.2.9223372036854775807");
}

TEST(DiagnosisText, HasReasonErrorsAndEverythingElse) {
    const Diagnosis whole{.finding = refused(Reason::badSignature, "why"),
                          .description = "name: 01",
                          .issuer = {},
                          .issuerKeyIdentifier = {},
                          .trusted = {},
                          .carriedBy = {"/twin"},
                          .isInKeyring = true,
                          .remarks = {"one", "two"}};
    EXPECT_EQ(textOf(whole, {}, ".ima"),
              "refused (bad-signature, \"Key was rejected by service\" or \"Invalid argument\" or "
              "\"Bad message\"): why; a key of its description is in .ima already; /twin carries "
              "the same key; one; two");
}

TEST(DiagnosisText, NamesTheKeyUnlessItIsRefused) {
    Diagnosis diagnosis;
    diagnosis.description = "name: 01";
    diagnosis.finding.explanation = "why";
    EXPECT_EQ(textOf(diagnosis, {}, ".ima"), "accepted as \"name: 01\": why");
    diagnosis.finding = unknown(Reason::unknownRule, "why");
    EXPECT_EQ(textOf(diagnosis, {}, ".ima"),
              "unknown (unknown-rule): why; the description of its key: \"name: 01\"");
}

TEST(DiagnosisText, HasTheErrorOfAFileThatCannotBeRead) {
    const FileContent absent = fileContent("/none");
    const Diagnosis diagnosis = diagnose(absent, ".ima", {});
    EXPECT_EQ(textOf(diagnosis, absent, ".ima"),
              "refused (unreadable-file, \"No such file or directory\"): it cannot be read: No "
              "such file or directory");
}

} // namespace

} // namespace Vestrel::Tests
