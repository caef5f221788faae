// SPDX-License-Identifier: Apache-2.0
// Tests how certificate files become keys of kernel keyrings, and what is said when they do not.
#include "keymodel/IntegrityKeyLoader.h"

#include "keymodel/CertificateDescription.h"
#include "platform/orvo/Ptr.h"
#include "tests/fakes/KeyService.h"
#include "tests/support/CertificateMaker.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

using Calls = std::vector<std::string>;

std::string textOf(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

const CertificateAuthority& authority() {
    static const CertificateAuthority mine = CertificateAuthority::generate();
    return mine;
}

const Bytes& certificate() {
    static const Bytes mine = authority().issue({});
    return mine;
}

const std::string certificateKey = "Leaf: a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3";

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class KeyLoader : public testing::Test {
protected:
    KeyLoader() {
        keys.keyring(".ima");
        keys.describeWith([](KeyService::Bytes der) { return certificateDescription(der); });
    }

    key_serial_t load(const std::string& file, const char* keyring = ".ima") {
        errno = 0;
        const key_serial_t key = loader->loadKey(file, keyring);
        error = errno;
        return key;
    }

    // Loads, expects the failure and returns its cause.
    int causeOf(const std::string& file, const char* keyring = ".ima") {
        const std::size_t descriptors = openDescriptors();
        EXPECT_EQ(load(file, keyring), -1) << file;
        const int cause = error;
        EXPECT_EQ(openDescriptors(), descriptors) << file;
        return cause;
    }

    std::string der() const { return directory.write("a.der", textOf(certificate())); }

    Calls callsOf(const std::string& name) const {
        Calls chosen;
        for (const std::string& call : keys.calls()) {
            if (call.starts_with(name + " ")) {
                chosen.push_back(call);
            }
        }
        return chosen;
    }

    Calls lookUps() const { return callsOf("find_key_by_type_and_desc"); }

    KeyService keys;
    TempDir directory;
    Orvo::Ptr<IntegrityKeyLoader> loader = Orvo::makeNode<IntegrityKeyLoader>();
    int error = 0;
};

struct KernelKeyLoader : KeyLoader, testing::WithParamInterface<int> {};

TEST_F(KeyLoader, AddsTheCertificateAndReturnsTheSerialOfItsKey) {
    const std::size_t descriptors = openDescriptors();
    const key_serial_t key = load(der());
    EXPECT_EQ(keys.keysOf(".ima"), std::vector<key_serial_t>{key});
    EXPECT_EQ(keys.payloadOf(key), certificate());
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(KeyLoader, HandsPemOverAsDer) {
    const key_serial_t key =
        load(directory.write("a.pem", "some words\n" + toPem(certificate()) + "more words\n"));
    ASSERT_GT(key, 0);
    EXPECT_EQ(keys.payloadOf(key), certificate());
}

TEST_F(KeyLoader, LeavesTheDescriptionToTheKernel) {
    load(der());
    EXPECT_EQ(callsOf("add_key"),
              Calls{"add_key asymmetric NULL " + std::to_string(certificate().size()) + " " +
                    std::to_string(keys.serialOf(".ima"))});
}

TEST_F(KeyLoader, LooksAKeyringUpByItsWholeNameAndLinksItNowhere) {
    load(der());
    EXPECT_EQ(lookUps(), Calls{"find_key_by_type_and_desc keyring .ima 0"});
}

TEST_F(KeyLoader, LooksEachKeyringUpOnce) {
    keys.keyring(".secondary_trusted_keys");
    const std::string file = der();
    for (int i = 0; i < 3; ++i) {
        load(file);
        load(file, ".secondary_trusted_keys");
    }
    EXPECT_EQ(lookUps(), (Calls{"find_key_by_type_and_desc keyring .ima 0",
                                "find_key_by_type_and_desc keyring .secondary_trusted_keys 0"}));
    EXPECT_EQ(keys.descriptionsOf(".ima"), Calls{certificateKey});
    EXPECT_EQ(keys.descriptionsOf(".secondary_trusted_keys"), Calls{certificateKey});
}

TEST_F(KeyLoader, DoesNotLookUpAgainWhenTheKernelOnlyRefusesTheCertificate) {
    const std::string file = der();
    load(file);
    keys.failNext("add_key", ENOKEY);
    EXPECT_EQ(causeOf(file), ENOKEY);
    EXPECT_EQ(lookUps().size(), 1U);
    EXPECT_EQ(callsOf("add_key").size(), 2U);
}

TEST_F(KeyLoader, FindsAKeyringThatWasMadeAnew) {
    const std::string file = der();
    load(file);
    keys.removeKeyring(".ima");
    keys.keyring(".ima");
    const key_serial_t key = load(file);
    EXPECT_EQ(keys.keysOf(".ima"), std::vector<key_serial_t>{key});
    EXPECT_EQ(lookUps().size(), 2U);
    load(file);
    EXPECT_EQ(lookUps().size(), 2U) << "the new serial is remembered";
}

TEST_F(KeyLoader, LooksAgainWhenTheSerialNowNamesAnotherKey) {
    const std::string file = der();
    load(file);
    const key_serial_t former = keys.serialOf(".ima");
    keys.removeKeyring(".ima");
    keys.keyring(".other");
    keys.reuseSerial(former);
    ASSERT_EQ(keys.addKey(".other", "a key"), former);
    keys.keyring(".ima");
    const key_serial_t key = load(file);
    EXPECT_EQ(keys.keysOf(".ima"), std::vector<key_serial_t>{key});
}

TEST_F(KeyLoader, LooksAgainWhenTheSerialNowNamesAKeyringWhoseNameOnlyEndsAlike) {
    const std::string file = der();
    load(file);
    const key_serial_t former = keys.serialOf(".ima");
    keys.removeKeyring(".ima");
    keys.reuseSerial(former);
    ASSERT_EQ(keys.keyring("not.ima", readOnlyKeyring), former);
    keys.keyring(".ima");
    EXPECT_GT(load(file), 0);
    EXPECT_TRUE(keys.keysOf("not.ima").empty());
}

TEST_F(KeyLoader, LooksAgainWhenTheSerialNowNamesAKeyringWhoseNameHasItBehindASemicolon) {
    const std::string file = der();
    load(file);
    const key_serial_t former = keys.serialOf(".ima");
    keys.removeKeyring(".ima");
    keys.reuseSerial(former);
    ASSERT_EQ(keys.keyring("not;.ima", readOnlyKeyring), former);
    keys.keyring(".ima");
    EXPECT_GT(load(file), 0);
}

TEST_F(KeyLoader, LooksAgainWhenTheSerialNowNamesAKeyringWithAShorterTextThanTheName) {
    const std::string file = der();
    keys.keyring(".secondary_trusted_keys");
    ASSERT_GT(loader->loadKey(file, ".secondary_trusted_keys"), 0);
    const key_serial_t former = keys.serialOf(".secondary_trusted_keys");
    keys.removeKeyring(".secondary_trusted_keys");
    keys.reuseSerial(former);
    ASSERT_EQ(keys.keyring("x", readOnlyKeyring), former);
    keys.keyring(".secondary_trusted_keys");
    EXPECT_GT(loader->loadKey(file, ".secondary_trusted_keys"), 0);
    EXPECT_TRUE(keys.keysOf("x").empty());
}

TEST_F(KeyLoader, NamesTheVerdictOfTheKeyringThatWasFoundAgain) {
    const std::string file = der();
    load(file);
    keys.removeKeyring(".ima");
    keys.keyring(".ima");
    keys.failNth("add_key", 2, EKEYREJECTED);
    EXPECT_EQ(causeOf(file), EKEYREJECTED);
}

TEST_F(KeyLoader, NamesTheFailedLookUpWhenTheKeyringIsGoneForGood) {
    const std::string file = der();
    load(file);
    keys.removeKeyring(".ima");
    keys.failNth("find_key_by_type_and_desc", 1, EPERM);
    EXPECT_EQ(causeOf(file), EPERM);
    EXPECT_EQ(causeOf(file), ENOKEY);
    EXPECT_EQ(callsOf("add_key").size(), 2U) << "the serial that is gone is asked once";
}

TEST_F(KeyLoader, NamesAKeyringThatIsMissing) {
    EXPECT_EQ(causeOf(der(), ".absent"), ENOKEY);
}

TEST_F(KeyLoader, NamesTheCauseOfALookUpThatFails) {
    keys.failNext("find_key_by_type_and_desc", ENFILE);
    EXPECT_EQ(causeOf(der()), ENFILE);
}

// -1 also names the caller's own thread keyring, into which a key could be added without an error.
TEST_F(KeyLoader, NeverTakesAFailedLookUpForAKeyring) {
    keys.threadKeyring();
    const std::string file = der();
    causeOf(file, ".absent");
    causeOf(file, ".absent");
    EXPECT_EQ(callsOf("add_key"), Calls{});
    EXPECT_EQ(lookUps().size(), 2U) << "a failure is not remembered";
}

TEST_P(KernelKeyLoader, PassesTheKernelsVerdictOn) {
    keys.judgeWith([](KeyService::Bytes) { return GetParam(); });
    const std::string file = der();
    EXPECT_EQ(causeOf(file), GetParam());
    // Whatever the question about the keyring, asked after the refusal, leaves in errno.
    keys.failNext("keyctl_describe_alloc", EIO);
    EXPECT_EQ(causeOf(file), GetParam());
    EXPECT_TRUE(keys.keysOf(".ima").empty());
}

INSTANTIATE_TEST_SUITE_P(Verdicts, KernelKeyLoader,
                         testing::Values(ENOKEY, EKEYREJECTED, EINVAL, EBADMSG, ENOPKG, EKEYEXPIRED,
                                         EDQUOT, ENOMEM));

TEST_F(KeyLoader, PassesOnThatAKeyringRefusesUserSpace) {
    keys.keyring(".machine", readOnlyKeyring);
    EXPECT_EQ(causeOf(der(), ".machine"), EACCES);
}

TEST_F(KeyLoader, NamesWhyAFileCannotBeRead) {
    EXPECT_EQ(causeOf(directory.path("missing")), ENOENT);
    EXPECT_EQ(causeOf(directory.write("file", "x") + "/below"), ENOTDIR);
    EXPECT_EQ(causeOf(directory.makeDirectory("directory")), EISDIR);
    EXPECT_EQ(causeOf(directory.write("empty", "")), EINVAL);
    EXPECT_EQ(causeOf(directory.makeFifo("fifo")), EINVAL);
    EXPECT_EQ(causeOf(directory.makeSymlink("dangling", "nowhere")), ENOENT);
    EXPECT_EQ(keys.calls(), Calls{}) << "the kernel is not asked about what was not read";
}

TEST_F(KeyLoader, RefusesAFileOfAMebibyte) {
    const std::string large = directory.write("large", "");
    std::filesystem::resize_file(large, std::uintmax_t{1024} * 1024);
    EXPECT_EQ(causeOf(large), EFBIG);
    EXPECT_EQ(keys.calls(), Calls{});
    std::filesystem::resize_file(large, std::uintmax_t{1024} * 1024 - 1);
    EXPECT_EQ(causeOf(large), EMSGSIZE) << "the kernel's own verdict";
}

TEST_F(KeyLoader, FollowsASymbolicLinkToACertificate) {
    der();
    EXPECT_GT(load(directory.makeSymlink("link", "a.der")), 0);
}

TEST_F(KeyLoader, HandsWhatIsNotACertificateToTheKernelAsItIs) {
    keys.judgeWith([](KeyService::Bytes content) {
        EXPECT_EQ(std::string(content.begin(), content.end()), "not a certificate");
        return EBADMSG;
    });
    EXPECT_EQ(causeOf(directory.write("junk", "not a certificate")), EBADMSG);
}

TEST_F(KeyLoader, TellsTheDescriptionThatTheKernelWillGive) {
    const std::string file = der();
    const std::string pem = directory.write("a.pem", toPem(certificate()));
    const std::size_t descriptors = openDescriptors();
    EXPECT_EQ(loader->getCertDescription(file), Orvo::String(certificateKey));
    EXPECT_EQ(loader->getCertDescription(pem), Orvo::String(certificateKey));
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(keys.calls(), Calls{}) << "worked out from the file alone";
    load(file);
    EXPECT_EQ(keys.descriptionsOf(".ima"), Calls{certificateKey});
}

TEST_F(KeyLoader, TellsNoDescriptionForWhatIsNotAReadableCertificate) {
    Bytes truncated = certificate();
    truncated.resize(truncated.size() / 2);
    const std::size_t descriptors = openDescriptors();
    EXPECT_TRUE(loader->getCertDescription(directory.path("missing")).empty());
    EXPECT_TRUE(loader->getCertDescription(directory.path()).empty());
    EXPECT_TRUE(loader->getCertDescription(directory.makeFifo("fifo")).empty());
    EXPECT_TRUE(loader->getCertDescription(directory.write("empty", "")).empty());
    EXPECT_TRUE(loader->getCertDescription(directory.write("junk", "junk")).empty());
    EXPECT_TRUE(loader->getCertDescription(directory.write("half", textOf(truncated))).empty());
    EXPECT_EQ(openDescriptors(), descriptors);
}

} // namespace

} // namespace Vestrel::Tests
