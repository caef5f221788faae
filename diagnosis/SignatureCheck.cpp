// SPDX-License-Identifier: Apache-2.0
// The kernel's table of algorithms; OpenSSL hashes and verifies.
#include "diagnosis/SignatureCheck.h"

#include "keymodel/CertificateDescription.h"
#include "keymodel/ErrorQueueGuard.h"

#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <array>
#include <memory>
#include <string_view>
#include <vector>

namespace Vestrel {

namespace {

struct KnownSignature {
    std::string_view id; // dotted
    const char* hash;
    const char* cipher;
};

// Without 1.2.840.113549.1.1.4: the kernel takes that number for MD4, which it is not, so that no
// such certificate can pass.
constexpr std::array knownSignatures{
    KnownSignature{"1.2.840.113549.1.1.5", "sha1", "rsa"},
    KnownSignature{"1.2.840.113549.1.1.11", "sha256", "rsa"},
    KnownSignature{"1.2.840.113549.1.1.12", "sha384", "rsa"},
    KnownSignature{"1.2.840.113549.1.1.13", "sha512", "rsa"},
    KnownSignature{"1.2.840.113549.1.1.14", "sha224", "rsa"},
    KnownSignature{"1.2.840.10045.4.1", "sha1", "ecdsa"},
    KnownSignature{"1.2.840.10045.4.3.1", "sha224", "ecdsa"},
    KnownSignature{"1.2.840.10045.4.3.2", "sha256", "ecdsa"},
    KnownSignature{"1.2.840.10045.4.3.3", "sha384", "ecdsa"},
    KnownSignature{"1.2.840.10045.4.3.4", "sha512", "ecdsa"},
    KnownSignature{"1.2.643.7.1.1.3.2", "streebog256", "ecrdsa"},
    KnownSignature{"1.2.643.7.1.1.3.3", "streebog512", "ecrdsa"},
    KnownSignature{"1.2.156.10197.1.501", "sm3", "sm2"},
};

struct KnownKey {
    std::string_view id;    // dotted
    std::string_view curve; // the same; empty: none is asked for
    const char* name;
};

constexpr std::string_view onCurve = "1.2.840.10045.2.1";

constexpr std::array knownKeys{
    KnownKey{"1.2.840.113549.1.1.1", "", "rsa"},
    KnownKey{"1.2.643.7.1.1.1.1", "", "ecrdsa"},
    KnownKey{"1.2.643.7.1.1.1.2", "", "ecrdsa"},
    KnownKey{"1.2.156.10197.1.301", "", "sm2"},
    KnownKey{onCurve, "1.2.156.10197.1.301", "sm2"},
    KnownKey{onCurve, "1.2.840.10045.3.1.1", "ecdsa-nist-p192"},
    KnownKey{onCurve, "1.2.840.10045.3.1.7", "ecdsa-nist-p256"},
    KnownKey{onCurve, "1.3.132.0.34", "ecdsa-nist-p384"},
};

template <auto release>
struct Deleter {
    template <typename T>
    void operator()(T* object) const {
        release(object);
    }
};

template <typename T, auto release>
using Owned = std::unique_ptr<T, Deleter<release>>;

using PublicKey = Owned<EVP_PKEY, EVP_PKEY_free>;
using DigestContext = Owned<EVP_MD_CTX, EVP_MD_CTX_free>;

// Whether every number is there to its end, in its shortest form, and of at most 63 bits.
bool isPlain(ByteSpan id) {
    constexpr std::size_t mostBytes = 9; // of a number, of 7 bits each
    std::size_t size = 0;                // of the number so far
    for (const std::uint8_t byte : id) {
        if (size == mostBytes || (size == 0 && byte == 0x80U)) {
            return false;
        }
        size = (byte & 0x80U) != 0 ? size + 1 : 0;
    }
    return size == 0;
}

// The content octets of an object identifier in dotted numbers, no two the same: the kernel
// compares the octets. Empty where the numbers do not tell them.
std::string dotted(ByteSpan id) {
    std::string text;
    std::uint64_t number = 0;
    for (const std::uint8_t byte : isPlain(id) ? id : ByteSpan()) {
        number = number << 7U | (byte & 0x7fU);
        if ((byte & 0x80U) != 0) {
            continue;
        }
        if (text.empty()) {
            const std::uint64_t root = number < 80 ? number / 40 : 2;
            text = std::to_string(root);
            number -= root * 40;
        }
        text += '.' + std::to_string(number);
        number = 0;
    }
    return text;
}

PublicKey publicKey(const CertificatePublicKey& key) {
    const unsigned char* position = key.encoding.data();
    return PublicKey(d2i_PUBKEY(nullptr, &position, static_cast<long>(key.encoding.size())));
}

// As OpenSSL names it.
const EVP_MD* digest(const std::string& hash) {
    return EVP_get_digestbyname(hash.c_str());
}

} // namespace

std::optional<SignatureAlgorithm> signatureAlgorithm(const CertificateFields& certificate) {
    const std::string id = dotted(certificate.signatureAlgorithm);
    for (const KnownSignature& known : knownSignatures) {
        if (known.id == id) {
            return SignatureAlgorithm{known.hash, known.cipher};
        }
    }
    return std::nullopt;
}

std::optional<std::string> keyAlgorithm(const CertificatePublicKey& key) {
    const std::string id = dotted(key.algorithm);
    const std::string curve = dotted(key.curve);
    for (const KnownKey& known : knownKeys) {
        if (known.id == id && (known.id != onCurve || known.curve == curve)) {
            return known.name;
        }
    }
    return std::nullopt;
}

std::string algorithmText(ByteSpan objectIdentifier) {
    const std::string numbers = dotted(objectIdentifier);
    if (numbers.empty()) {
        return hexOf(objectIdentifier);
    }
    const ErrorQueueGuard guard;
    const int known = OBJ_txt2nid(numbers.c_str());
    return known == NID_undef ? numbers : OBJ_nid2ln(known);
}

std::optional<std::string> hashOfSigned(const CertificateFields& certificate,
                                        const SignatureAlgorithm& algorithm) {
    const ErrorQueueGuard guard;
    const EVP_MD* const type = digest(algorithm.hash);
    std::array<std::uint8_t, EVP_MAX_MD_SIZE> hash{};
    unsigned size = 0;
    if (type == nullptr || EVP_Digest(certificate.toBeSigned.data(), certificate.toBeSigned.size(),
                                      hash.data(), &size, type, nullptr) != 1) {
        return std::nullopt;
    }
    return hexOf(ByteSpan(hash).first(size));
}

SignatureState signatureState(const CertificateFields& certificate,
                              const CertificatePublicKey& key) {
    const auto algorithm = signatureAlgorithm(certificate);
    if (!algorithm) {
        return SignatureState::notVerifiable;
    }
    const ErrorQueueGuard guard;
    const PublicKey verifier = publicKey(key);
    const EVP_MD* const type = digest(algorithm->hash);
    const DigestContext context(EVP_MD_CTX_new());
    // The others have rules of their own for what is hashed.
    const bool isVerifiable = algorithm->cipher == "rsa" || algorithm->cipher == "ecdsa";
    if (!isVerifiable || !verifier || type == nullptr || !context ||
        EVP_DigestVerifyInit(context.get(), nullptr, type, nullptr, verifier.get()) != 1) {
        return SignatureState::notVerifiable;
    }
    return EVP_DigestVerify(context.get(), certificate.signature.data(),
                            certificate.signature.size(), certificate.toBeSigned.data(),
                            certificate.toBeSigned.size()) == 1
               ? SignatureState::good
               : SignatureState::bad;
}

} // namespace Vestrel
