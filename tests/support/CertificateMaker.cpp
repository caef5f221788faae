// SPDX-License-Identifier: Apache-2.0
// Encodes test certificates element by element: OpenSSL, which makes the keys and signatures,
// neither encodes nor reads back every name that the kernel takes.
#include "tests/support/CertificateMaker.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/x509v3.h>

#include <array>
#include <map>
#include <stdexcept>
#include <utility>

namespace Vestrel::Tests {

namespace {

template <auto release>
struct Deleter {
    template <typename T>
    void operator()(T* object) const {
        release(object);
    }
};

template <typename T, auto release>
using Owned = std::unique_ptr<T, Deleter<release>>;

using BioPtr = Owned<BIO, BIO_free_all>;
using ObjectPtr = Owned<ASN1_OBJECT, ASN1_OBJECT_free>;
using DigestContextPtr = Owned<EVP_MD_CTX, EVP_MD_CTX_free>;

void require(bool isDone, const std::string& what) {
    if (!isDone) {
        const char* reason = ERR_reason_error_string(ERR_peek_last_error());
        ERR_clear_error();
        throw std::runtime_error(what + ": " + (reason != nullptr ? reason : "refused"));
    }
}

// Hands on what OpenSSL returned, unless that is null.
template <typename T>
T* made(T* object, const std::string& what) {
    require(object != nullptr, what);
    return object;
}

EVP_PKEY* generateOnCurve(const char* name) {
    return EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", name);
}

EVP_PKEY* generateKey(KeyKind kind) {
    switch (kind) {
    case KeyKind::rsa2048:
        return EVP_RSA_gen(2048);
    case KeyKind::p192:
        return generateOnCurve("P-192");
    case KeyKind::p224:
        return generateOnCurve("P-224");
    case KeyKind::p256:
        return generateOnCurve("P-256");
    case KeyKind::p384:
        return generateOnCurve("P-384");
    case KeyKind::p521:
        return generateOnCurve("P-521");
    case KeyKind::secp256k1:
        return generateOnCurve("secp256k1");
    case KeyKind::ed25519:
        return EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
    }
    return nullptr;
}

PkeyPtr newKey(KeyKind kind) {
    return PkeyPtr(made(generateKey(kind), "key generation"));
}

EVP_PKEY* sharedKey(KeyKind kind) {
    static std::map<KeyKind, PkeyPtr> keys;
    PkeyPtr& key = keys[kind];
    if (!key) {
        key = newKey(kind);
    }
    return key.get();
}

// Elements of an encoding.

constexpr std::uint8_t constructed = 0x20;
constexpr std::uint8_t contextTag = 0x80;

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Bytes lengthOf(const Bytes& content) {
    const auto low = static_cast<std::uint8_t>(content.size() & 0xffU);
    const auto high = static_cast<std::uint8_t>(content.size() >> 8U);
    require(content.size() <= 0xffff, "element of more than 65535 bytes");
    if (high != 0) {
        return {0x82, high, low};
    }
    return low < 0x80 ? Bytes{low} : Bytes{0x81, low};
}

Bytes element(int tag, const Bytes& content) {
    return joined({{static_cast<std::uint8_t>(tag)}, lengthOf(content), content});
}

Bytes container(int tag, std::initializer_list<Bytes> parts) {
    return element(tag | constructed, joined(parts));
}

Bytes sequence(std::initializer_list<Bytes> parts) {
    return container(V_ASN1_SEQUENCE, parts);
}

Bytes wholeBytes(const Bytes& content) {
    return element(V_ASN1_BIT_STRING, joined({{0x00}, content}));
}

// The DER of an OpenSSL object.
template <typename T>
Bytes encoded(T* object, int (*encode)(T*, unsigned char**)) {
    const int size = encode(object, nullptr);
    require(size > 0, "encoding");
    Bytes bytes(static_cast<std::size_t>(size));
    unsigned char* position = bytes.data();
    encode(object, &position);
    return bytes;
}

Bytes objectIdentifier(const std::string& name) {
    const ObjectPtr object(made(OBJ_txt2obj(name.c_str(), 0), name));
    return encoded<const ASN1_OBJECT>(object.get(), i2d_ASN1_OBJECT);
}

// Fields of a certificate.

Bytes name(const std::vector<NamePart>& parts) {
    std::vector<Bytes> sets;
    for (const NamePart& part : parts) {
        if (!part.withPrevious) {
            sets.emplace_back();
        }
        sets.back() = joined({sets.back(), sequence({objectIdentifier(part.attribute),
                                                     element(part.type, bytesOf(part.bytes))})});
    }
    Bytes content;
    for (const Bytes& set : sets) {
        content = joined({content, container(V_ASN1_SET, {set})});
    }
    return container(V_ASN1_SEQUENCE, {content});
}

Bytes time(const std::string& text) {
    const bool isShort = text.size() == std::string_view("YYMMDDhhmmssZ").size();
    return element(isShort ? V_ASN1_UTCTIME : V_ASN1_GENERALIZEDTIME, bytesOf(text));
}

Bytes extension(const ExtensionPlan& plan) {
    return sequence({objectIdentifier(plan.id),
                     plan.critical ? element(V_ASN1_BOOLEAN, {0xff}) : Bytes{},
                     element(V_ASN1_OCTET_STRING, plan.value)});
}

Bytes hashOf(EVP_PKEY* key) {
    unsigned char* point = nullptr;
    const std::size_t size = EVP_PKEY_get1_encoded_public_key(key, &point);
    Bytes bits;
    if (size > 0) {
        const Owned<unsigned char, [](void* memory) { OPENSSL_free(memory); }> owner(point);
        bits.assign(point, point + size);
    } else { // not a key on a curve: its own encoding is what is hashed
        ERR_clear_error();
        bits = encoded<const EVP_PKEY>(key, i2d_PublicKey);
    }
    Bytes hash(SHA_DIGEST_LENGTH);
    SHA1(bits.data(), bits.size(), hash.data());
    return hash;
}

Bytes keyIdentifierExtension(const Bytes& identifier) {
    return extension({"subjectKeyIdentifier", element(V_ASN1_OCTET_STRING, identifier)});
}

Bytes keyIdentifierExtension(const CertificatePlan& plan, EVP_PKEY* key) {
    switch (plan.keyIdentifier) {
    case KeyIdentifier::hashOfKey:
        return keyIdentifierExtension(hashOf(key));
    case KeyIdentifier::given:
        return keyIdentifierExtension(plan.keyIdentifierBytes);
    case KeyIdentifier::none:
        break;
    }
    return {};
}

Bytes authorityNameAndSerial(X509* authority) {
    const Bytes issuer = encoded<const X509_NAME>(X509_get_issuer_name(authority), i2d_X509_NAME);
    Bytes serial = encoded<const ASN1_INTEGER>(X509_get0_serialNumber(authority), i2d_ASN1_INTEGER);
    serial[0] = contextTag | 2;
    return joined({container(contextTag | 1, {container(contextTag | 4, {issuer})}), serial});
}

Bytes authorityIdentifierExtension(AuthorityIdentifier kind, X509* authority) {
    if (kind == AuthorityIdentifier::none) {
        return {};
    }
    X509_check_purpose(authority, -1, -1); // so that OpenSSL looks at the extensions
    const ASN1_OCTET_STRING* identifier =
        made(X509_get0_subject_key_id(authority), "key identifier of the authority");
    const unsigned char* bytes = ASN1_STRING_get0_data(identifier);
    const Bytes key(bytes, bytes + ASN1_STRING_length(identifier));
    return extension(
        {"authorityKeyIdentifier",
         sequence({element(contextTag, key), kind == AuthorityIdentifier::keyNameAndSerial
                                                 ? authorityNameAndSerial(authority)
                                                 : Bytes{}})});
}

Bytes extensions(const CertificatePlan& plan, EVP_PKEY* key, X509* authority) {
    Bytes all = keyIdentifierExtension(plan, key);
    if (authority != nullptr) {
        all = joined({all, authorityIdentifierExtension(plan.authorityIdentifier, authority)});
    }
    for (const ExtensionPlan& planned : plan.extensions) {
        all = joined({all, extension(planned)});
    }
    return container(contextTag | 3, {container(V_ASN1_SEQUENCE, {all})});
}

// How an RSA or EC key signs.
Bytes signatureAlgorithm(EVP_PKEY* key, const std::string& hash) {
    return EVP_PKEY_is_a(key, "RSA") != 0
               ? sequence({objectIdentifier("RSA-" + hash), element(V_ASN1_NULL, {})})
               : sequence({objectIdentifier("ecdsa-with-" + hash)});
}

Bytes signatureOf(const Bytes& content, const std::string& hash, EVP_PKEY* key) {
    const DigestContextPtr context(made(EVP_MD_CTX_new(), "digest context"));
    std::size_t size = 0;
    require(EVP_DigestSignInit(context.get(), nullptr, EVP_get_digestbyname(hash.c_str()), nullptr,
                               key) == 1 &&
                EVP_DigestSign(context.get(), nullptr, &size, content.data(), content.size()) == 1,
            "signing");
    Bytes signature(size);
    require(
        EVP_DigestSign(context.get(), signature.data(), &size, content.data(), content.size()) == 1,
        "signing");
    signature.resize(size);
    return signature;
}

// `authority` may be null: then there is no authority to identify.
Bytes certificateOf(const CertificatePlan& plan, EVP_PKEY* key, const Bytes& issuer,
                    X509* authority, EVP_PKEY* signer) {
    const Bytes algorithm = signatureAlgorithm(signer, plan.hash);
    const Bytes version = container(contextTag, {element(V_ASN1_INTEGER, {0x02})});
    const Bytes toBeSigned =
        sequence({plan.isVersion1 ? Bytes{} : version, element(V_ASN1_INTEGER, plan.serialNumber),
                  algorithm, issuer, sequence({time(plan.notBefore), time(plan.notAfter)}),
                  name(plan.subject), encoded<const EVP_PKEY>(key, i2d_PUBKEY),
                  plan.isVersion1 ? Bytes{} : extensions(plan, key, authority)});
    return sequence(
        {toBeSigned, algorithm, wholeBytes(signatureOf(toBeSigned, plan.hash, signer))});
}

X509Ptr decoded(const Bytes& der) {
    const unsigned char* position = der.data();
    return X509Ptr(made(d2i_X509(nullptr, &position, static_cast<long>(der.size())), "authority"));
}

// Reads a file in PEM with one function, or else in DER with the other.
template <typename T>
T* readFile(const std::string& path, T* (*pem)(BIO*, T**, pem_password_cb*, void*),
            T* (*der)(BIO*, T**)) {
    const BioPtr file(made(BIO_new_file(path.c_str(), "rb"), path));
    if (T* object = pem(file.get(), nullptr, nullptr, nullptr); object != nullptr) {
        return object;
    }
    ERR_clear_error();
    require(BIO_seek(file.get(), 0) >= 0, path);
    return made(der(file.get(), nullptr), path);
}

std::string contentOf(BIO* memory) {
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory, &text);
    return {text, static_cast<std::size_t>(size)};
}

} // namespace

CertificateAuthority::CertificateAuthority(X509Ptr certificate, PkeyPtr key)
    : certificate_(std::move(certificate)), key_(std::move(key)) {}

CertificateAuthority CertificateAuthority::generate(const std::string& commonName) {
    CertificatePlan plan;
    plan.subject = {{"O", "Vestrel tests"}, {"CN", commonName}};
    plan.keyIdentifier = KeyIdentifier::hashOfKey;
    plan.extensions = {{"basicConstraints", sequence({element(V_ASN1_BOOLEAN, {0xff})}), true},
                       {"keyUsage", element(V_ASN1_BIT_STRING, {0x02, 0x04}), true}};
    PkeyPtr key = newKey(KeyKind::p256);
    const Bytes der = certificateOf(plan, key.get(), name(plan.subject), nullptr, key.get());
    return {decoded(der), std::move(key)};
}

CertificateAuthority CertificateAuthority::load(const std::string& certificatePath,
                                                const std::string& keyPath) {
    X509Ptr certificate(readFile<X509>(certificatePath, PEM_read_bio_X509, d2i_X509_bio));
    PkeyPtr key(readFile<EVP_PKEY>(keyPath, PEM_read_bio_PrivateKey, d2i_PrivateKey_bio));
    return {std::move(certificate), std::move(key)};
}

Bytes CertificateAuthority::certificate() const {
    return encoded<const X509>(certificate_.get(), i2d_X509);
}

std::string CertificateAuthority::keyPem() const {
    const BioPtr memory(made(BIO_new(BIO_s_mem()), "memory"));
    require(PEM_write_bio_PrivateKey(memory.get(), key_.get(), nullptr, nullptr, 0, nullptr,
                                     nullptr) == 1,
            "private key");
    return contentOf(memory.get());
}

Bytes CertificateAuthority::issue(const CertificatePlan& plan) const {
    const Bytes issuer =
        encoded<const X509_NAME>(X509_get_subject_name(certificate_.get()), i2d_X509_NAME);
    return certificateOf(plan, sharedKey(plan.key), issuer, certificate_.get(), key_.get());
}

CertificateAuthority CertificateAuthority::intermediate(const CertificatePlan& plan) const {
    const Bytes issuer =
        encoded<const X509_NAME>(X509_get_subject_name(certificate_.get()), i2d_X509_NAME);
    PkeyPtr key = newKey(KeyKind::p256);
    return {decoded(certificateOf(plan, key.get(), issuer, certificate_.get(), key_.get())),
            std::move(key)};
}

std::string toPem(const Bytes& der, const std::string& label) {
    const BioPtr memory(made(BIO_new(BIO_s_mem()), "memory"));
    require(PEM_write_bio(memory.get(), label.c_str(), "", der.data(),
                          static_cast<long>(der.size())) > 0,
            "PEM");
    return contentOf(memory.get());
}

Bytes bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

} // namespace Vestrel::Tests
