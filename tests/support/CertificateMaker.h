// SPDX-License-Identifier: Apache-2.0
// Makes certificates of any shape for the tests: an authority, and what it issues.
#pragma once

#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Vestrel::Tests {

using Bytes = std::vector<std::uint8_t>;

enum class KeyKind { rsa2048, p192, p224, p256, p384, p521, secp256k1, ed25519 };

// One attribute of a name; its bytes go into the certificate as they are, under the given tag
// (V_ASN1_UTF8STRING and its like), whether or not they are valid there.
struct NamePart {
    std::string attribute; // short name, or number with points
    std::string bytes;
    int type = V_ASN1_UTF8STRING;
    bool withPrevious = false; // in one set with the attribute before it
};

struct ExtensionPlan {
    std::string id; // short name, or number with points
    Bytes value;    // what stands inside the extension's octet string
    bool critical = false;
};

enum class KeyIdentifier { none, hashOfKey, given };
enum class AuthorityIdentifier { none, key, keyNameAndSerial };

// What a certificate is to look like. Nothing is checked: what is planned is what is encoded.
struct CertificatePlan {
    std::vector<NamePart> subject{{"CN", "Leaf"}};
    KeyKind key = KeyKind::p256;
    KeyIdentifier keyIdentifier = KeyIdentifier::given;
    Bytes keyIdentifierBytes{0xa0, 0xa1, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9,
                             0xaa, 0xab, 0xac, 0xad, 0xae, 0xaf, 0xb0, 0xb1, 0xb2, 0xb3};
    AuthorityIdentifier authorityIdentifier = AuthorityIdentifier::key;
    Bytes serialNumber{0x12, 0x34}; // content octets
    // YYMMDDhhmmssZ, or else a GeneralizedTime
    std::string notBefore = "200101000000Z";
    std::string notAfter = "491231235959Z";
    std::vector<ExtensionPlan> extensions;
    std::string hash = "SHA256"; // that is signed
    bool isVersion1 = false;     // without any extension, whatever is planned above
};

struct X509Deleter {
    void operator()(X509* certificate) const { X509_free(certificate); }
};

struct PkeyDeleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};

using X509Ptr = std::unique_ptr<X509, X509Deleter>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, PkeyDeleter>;

// Throws std::runtime_error where OpenSSL refuses. The key of issued certificates is made once for
// each kind and process.
class CertificateAuthority {
public:
    // A self-signed authority with a fresh key on P-256.
    static CertificateAuthority generate(const std::string& commonName = "Authority");

    // An authority with an RSA or EC key from files, each in DER or PEM.
    static CertificateAuthority load(const std::string& certificatePath,
                                     const std::string& keyPath);

    // In DER.
    Bytes certificate() const;

    // The private key, in PEM.
    std::string keyPem() const;

    // A certificate after this plan, signed by the authority, in DER.
    Bytes issue(const CertificatePlan& plan) const;

    // An authority with a fresh key on P-256, whose certificate after this plan this one signs.
    CertificateAuthority intermediate(const CertificatePlan& plan) const;

private:
    CertificateAuthority(X509Ptr certificate, PkeyPtr key);

    X509Ptr certificate_;
    PkeyPtr key_;
};

// One PEM block with these bytes.
std::string toPem(const Bytes& der, const std::string& label = "CERTIFICATE");

Bytes bytesOf(const std::string& text);

} // namespace Vestrel::Tests
