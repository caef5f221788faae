// SPDX-License-Identifier: Apache-2.0
// Tests of the certificate's grammar, production by production, on certificates put together by
// hand: what is read, and that each damage alone has the whole refused.
#include "keymodel/CertificateFields.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace Vestrel::Tests {

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Bytes element(std::uint8_t tag, const Bytes& content) {
    const Bytes header{tag, 0x82, static_cast<std::uint8_t>(content.size() >> 8U),
                       static_cast<std::uint8_t>(content.size() & 0xffU)};
    return joined({header, content});
}

Bytes sequence(std::initializer_list<Bytes> parts) {
    return element(Ber::sequence, joined(parts));
}

Bytes text(std::uint8_t tag, const std::string& content) {
    return element(tag, {content.begin(), content.end()});
}

Bytes copied(ByteSpan bytes) {
    return {bytes.begin(), bytes.end()};
}

Bytes nameAttribute(const Bytes& id, const std::string& value) {
    return sequence({element(Ber::objectIdentifier, id), text(0x0c, value)});
}

const Bytes commonName{0x55, 0x04, 0x03};
const Bytes organization{0x55, 0x04, 0x0a};
const Bytes null{0x05, 0x00};
const Bytes cut{0x05, 0x7f}; // says that more follows than does

Bytes nameOf(const std::string& value) {
    return sequence({element(Ber::set, nameAttribute(commonName, value))});
}

Bytes time(const std::string& year) {
    return text(Ber::utcTime, year + "0101000000Z");
}

const Bytes signatureId{0x2a, 0x03};
const Bytes ecPublicKeyId{0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01};

Bytes algorithm(const Bytes& id, const Bytes& parameters = null) {
    return sequence({element(Ber::objectIdentifier, id), parameters});
}

Bytes extension(std::uint8_t lastOfId, const Bytes& value) {
    return sequence(
        {element(Ber::objectIdentifier, {0x55, 0x1d, lastOfId}), element(Ber::octetString, value)});
}

Bytes extensions(std::initializer_list<Bytes> list) {
    return element(Ber::contextConstructed(3), sequence(list));
}

// Each part as it stands in the certificate.
struct Parts {
    Bytes version = element(Ber::contextConstructed(0), {Ber::integer, 0x01, 0x02});
    Bytes serialNumber = element(Ber::integer, {0x12, 0x34});
    Bytes signatureAlgorithm = algorithm(signatureId);
    Bytes issuer = nameOf("Issuer");
    Bytes validity = sequence({time("20"), time("30")});
    Bytes subject = nameOf("Subject");
    Bytes publicKey = sequence({algorithm({0x2a, 0x04}), element(Ber::bitString, {0, 0xaa, 0xbb})});
    Bytes uniqueIdentifiers;
    Bytes extensions;
    Bytes behindExtensions;
    Bytes usedAlgorithm = algorithm(signatureId);
    Bytes signature = element(Ber::bitString, {0, 0xcc, 0xdd});
    Bytes behindSignature;

    Bytes toBeSigned() const {
        return sequence({version, serialNumber, signatureAlgorithm, issuer, validity, subject,
                         publicKey, uniqueIdentifiers, extensions, behindExtensions});
    }

    Bytes certificate() const {
        return sequence({toBeSigned(), usedAlgorithm, signature, behindSignature});
    }
};

bool isRead(const Bytes& der) {
    return readCertificate(der).has_value();
}

bool isRead(const Parts& parts) {
    return isRead(parts.certificate());
}

// The default certificate with one part replaced.
bool isReadWith(Bytes Parts::*part, const Bytes& bytes) {
    Parts parts;
    parts.*part = bytes;
    return isRead(parts);
}

TEST(CertificateFields, AreThoseThatStandInTheCertificate) {
    Parts parts;
    parts.extensions = extensions({extension(0x0e, {0x04, 0x01, 0xe1}), extension(0x0f, {0xe2}),
                                   extension(0x13, {0xe3}), extension(0x7f, {0xe4})});
    const Bytes der = parts.certificate();
    const auto fields = readCertificate(der);
    ASSERT_TRUE(fields);
    EXPECT_EQ(copied(fields->serialNumber), (Bytes{0x12, 0x34}));
    EXPECT_EQ(copied(fields->issuer.parts.commonName), (Bytes{'I', 's', 's', 'u', 'e', 'r'}));
    EXPECT_EQ(element(Ber::sequence, copied(fields->issuer.content)), parts.issuer);
    EXPECT_EQ(element(Ber::sequence, copied(fields->subject.content)), parts.subject);
    EXPECT_EQ(copied(fields->publicKey.encoding), parts.publicKey);
    EXPECT_EQ(copied(fields->publicKey.algorithm), (Bytes{0x2a, 0x04}));
    EXPECT_TRUE(fields->publicKey.curve.empty());
    EXPECT_EQ(copied(fields->toBeSigned), parts.toBeSigned());
    EXPECT_EQ(copied(fields->signatureAlgorithm), signatureId);
    EXPECT_EQ(copied(fields->signature), (Bytes{0xcc, 0xdd}));
    EXPECT_EQ(copied(fields->notBefore.encoding), time("20"));
    EXPECT_EQ(copied(fields->notAfter.encoding), time("30"));
    EXPECT_EQ(copied(fields->subjectKeyIdentifier.value_or(ByteSpan())), Bytes{0xe1});
    EXPECT_EQ(copied(fields->keyUsage.value_or(ByteSpan())), Bytes{0xe2});
    EXPECT_EQ(copied(fields->basicConstraints.value_or(ByteSpan())), Bytes{0xe3});
    EXPECT_FALSE(fields->authority.keyIdentifier);
    EXPECT_FALSE(fields->authority.serialNumber);
}

TEST(CertificateFields, HaveNoExtensionsWhereThereAreNone) {
    const Bytes der = Parts().certificate();
    const auto fields = readCertificate(der);
    ASSERT_TRUE(fields);
    EXPECT_FALSE(fields->subjectKeyIdentifier);
    EXPECT_FALSE(fields->keyUsage);
    EXPECT_FALSE(fields->basicConstraints);
}

TEST(CertificateFields, NeedTheWholeCertificate) {
    const Bytes nothingButTheEnd = sequence({});
    EXPECT_FALSE(isRead(nothingButTheEnd));
    EXPECT_FALSE(isReadWith(&Parts::behindSignature, null));
    EXPECT_FALSE(isReadWith(&Parts::behindExtensions, null));
    for (const auto part :
         {&Parts::serialNumber, &Parts::signatureAlgorithm, &Parts::issuer, &Parts::validity,
          &Parts::subject, &Parts::publicKey, &Parts::usedAlgorithm, &Parts::signature}) {
        EXPECT_FALSE(isReadWith(part, {}));
        EXPECT_FALSE(isReadWith(part, null));
        EXPECT_FALSE(isReadWith(part, cut));
    }
}

TEST(CertificateFields, MayLackAVersionButNotHaveADifferentThingInItsPlace) {
    const auto version = [](const Bytes& content) {
        return element(Ber::contextConstructed(0), content);
    };
    EXPECT_TRUE(isReadWith(&Parts::version, {}));
    EXPECT_TRUE(isReadWith(&Parts::version, version({Ber::integer, 0x01, 0x02})));
    EXPECT_FALSE(isReadWith(&Parts::version, version(null)));
    EXPECT_FALSE(isReadWith(&Parts::version, version({})));
    EXPECT_FALSE(isReadWith(&Parts::version, version({Ber::integer, 0x01, 0x02, 0x05, 0x00})));
}

TEST(CertificateFields, NeedTheSameAlgorithmInBothPlaces) {
    EXPECT_FALSE(isReadWith(&Parts::usedAlgorithm, algorithm({0x2a, 0x05})));
    Parts parts;
    parts.signatureAlgorithm = parts.usedAlgorithm = sequence({null});
    EXPECT_FALSE(isRead(parts)) << "one that is missing in both";
    parts.signatureAlgorithm = parts.usedAlgorithm = sequence({});
    EXPECT_FALSE(isRead(parts));
    parts.signatureAlgorithm = null;
    parts.usedAlgorithm = algorithm({});
    EXPECT_FALSE(isRead(parts)) << "none, and one without a number";
    parts.signatureAlgorithm = parts.usedAlgorithm = algorithm(signatureId, {});
    EXPECT_TRUE(isRead(parts)) << "no parameters";
    parts.signatureAlgorithm = parts.usedAlgorithm = algorithm(signatureId, cut);
    EXPECT_FALSE(isRead(parts));
    parts.signatureAlgorithm = parts.usedAlgorithm = algorithm(signatureId, joined({null, null}));
    EXPECT_FALSE(isRead(parts));
}

TEST(CertificateFields, TakeTheBeginningForAMissingEnd) {
    Parts parts;
    parts.validity = sequence({time("21")});
    const Bytes der = parts.certificate();
    const auto fields = readCertificate(der);
    ASSERT_TRUE(fields);
    EXPECT_EQ(copied(fields->notBefore.encoding), time("21"));
    EXPECT_EQ(copied(fields->notAfter.encoding), time("21"));
    EXPECT_FALSE(isReadWith(&Parts::validity, sequence({})));
    EXPECT_FALSE(isReadWith(&Parts::validity, sequence({time("20"), null})));
    EXPECT_FALSE(isReadWith(&Parts::validity, sequence({time("20"), time("30"), null})));
}

TEST(CertificateFields, NeedBitStringsOfWholeBytes) {
    for (const Bytes& bits : {element(Ber::bitString, {}), element(Ber::bitString, {1, 0xaa})}) {
        Parts parts;
        parts.signature = bits;
        Bytes followed = parts.certificate();
        followed.push_back(0);
        EXPECT_FALSE(isRead(parts));
        EXPECT_FALSE(isRead(followed));
        EXPECT_FALSE(isReadWith(&Parts::publicKey, sequence({algorithm({0x2a, 0x04}), bits})));
    }
    EXPECT_TRUE(isReadWith(&Parts::signature, element(Ber::bitString, {0})));
}

TEST(CertificateFields, NeedAKeyWithNothingBehindItsBits) {
    const Bytes bits = element(Ber::bitString, {0, 0xaa});
    const auto isReadWithKey = [](std::initializer_list<Bytes> key) {
        return isReadWith(&Parts::publicKey, sequence(key));
    };
    EXPECT_TRUE(isReadWithKey({algorithm({0x2a, 0x04}), bits}));
    EXPECT_FALSE(isReadWithKey({algorithm({0x2a, 0x04}), bits, null}));
    EXPECT_FALSE(isReadWithKey({algorithm({0x2a, 0x04})}));
    EXPECT_FALSE(isReadWithKey({algorithm({0x2a, 0x04}), null}));
    EXPECT_FALSE(isReadWithKey({algorithm({0x2a, 0x04}, cut), bits}));
    EXPECT_FALSE(isReadWithKey({sequence({null}), bits}));
    EXPECT_FALSE(isReadWithKey({bits}));
}

TEST(CertificateFields, NameTheCurveInItsShortestFormOnly) {
    const auto key = [](const Bytes& parameters) {
        return sequence({algorithm(ecPublicKeyId, parameters), element(Ber::bitString, {0, 4})});
    };
    Parts parts;
    parts.publicKey = key({Ber::objectIdentifier, 0x01, 0x2a});
    const Bytes der = parts.certificate();
    const auto fields = readCertificate(der);
    ASSERT_TRUE(fields) << "one byte is the least";
    EXPECT_EQ(copied(fields->publicKey.curve), Bytes{0x2a});
    EXPECT_FALSE(isReadWith(&Parts::publicKey, key({Ber::objectIdentifier, 0x00})));
    EXPECT_FALSE(isReadWith(&Parts::publicKey, key({Ber::objectIdentifier, 0x81, 0x01, 0x2a})));
    EXPECT_FALSE(isReadWith(&Parts::publicKey, key({Ber::octetString, 0x01, 0x2a})));
    EXPECT_FALSE(isReadWith(&Parts::publicKey, key({})));
}

TEST(CertificateFields, SkipUniqueIdentifiersInTheirOrder) {
    const Bytes first = element(Ber::contextPrimitive(1), {0xaa});
    const Bytes second = element(Ber::contextPrimitive(2), {0xbb});
    EXPECT_TRUE(isReadWith(&Parts::uniqueIdentifiers, joined({first, second})));
    EXPECT_TRUE(isReadWith(&Parts::uniqueIdentifiers, second));
    EXPECT_FALSE(isReadWith(&Parts::uniqueIdentifiers, joined({second, first})));
    EXPECT_FALSE(isReadWith(&Parts::uniqueIdentifiers, element(Ber::contextPrimitive(3), {0xaa})));
}

TEST(CertificateFields, NeedAtLeastOneExtensionWhereThereIsAPlaceForThem) {
    const auto wrapped = [](const Bytes& content) {
        return element(Ber::contextConstructed(3), content);
    };
    const Bytes one = extension(0x7f, {});
    EXPECT_TRUE(isReadWith(&Parts::extensions, wrapped(sequence({one}))));
    EXPECT_FALSE(isReadWith(&Parts::extensions, wrapped(sequence({}))));
    EXPECT_FALSE(isReadWith(&Parts::extensions, wrapped({})));
    EXPECT_FALSE(isReadWith(&Parts::extensions, wrapped(null)));
    EXPECT_FALSE(isReadWith(&Parts::extensions, wrapped(joined({sequence({one}), null}))));
    EXPECT_FALSE(isReadWith(&Parts::extensions, {Ber::contextConstructed(3), 0x7f}));
}

TEST(CertificateFields, NeedExtensionsOfAnIdentifierAndAnOctetString) {
    const Bytes id = element(Ber::objectIdentifier, {0x55, 0x1d, 0x7f});
    const Bytes value = element(Ber::octetString, {0xaa});
    const Bytes flag = element(Ber::boolean, {0xff});
    const auto isReadWithExtension = [](std::initializer_list<Bytes> parts) {
        return isReadWith(&Parts::extensions, extensions({sequence(parts)}));
    };
    EXPECT_TRUE(isReadWithExtension({id, value}));
    EXPECT_TRUE(isReadWithExtension({id, flag, value}));
    EXPECT_FALSE(isReadWithExtension({value}));
    EXPECT_FALSE(isReadWithExtension({id}));
    EXPECT_FALSE(isReadWithExtension({id, null}));
    EXPECT_FALSE(isReadWithExtension({id, flag}));
    EXPECT_FALSE(isReadWithExtension({id, {Ber::boolean, 0x7f}}));
    EXPECT_FALSE(isReadWithExtension({id, value, null}));
    EXPECT_FALSE(isReadWithExtension({}));
    EXPECT_FALSE(isReadWith(&Parts::extensions, extensions({null})));
    EXPECT_FALSE(isReadWith(&Parts::extensions, extensions({sequence({id, value}), null})));
}

TEST(CertificateFields, TakeTheLastOfAnExtensionThatIsThereTwice) {
    Parts parts;
    parts.extensions = extensions({extension(0x0f, {0x01}), extension(0x0f, {0x02}),
                                   extension(0x13, {0x03}), extension(0x13, {0x04})});
    const Bytes der = parts.certificate();
    const auto fields = readCertificate(der);
    ASSERT_TRUE(fields);
    EXPECT_EQ(copied(fields->keyUsage.value_or(ByteSpan())), Bytes{0x02});
    EXPECT_EQ(copied(fields->basicConstraints.value_or(ByteSpan())), Bytes{0x04});
}

TEST(CertificateFields, NeedOneSubjectKeyIdentifierInItsShortestForm) {
    const auto isReadWithIdentifier = [](const Bytes& value) {
        return isReadWith(&Parts::extensions, extensions({extension(0x0e, value)}));
    };
    EXPECT_TRUE(isReadWithIdentifier({0x04, 0x01, 0xaa}));
    EXPECT_FALSE(isReadWithIdentifier({0x04, 0x00}));
    EXPECT_FALSE(isReadWithIdentifier({0x04}));
    EXPECT_FALSE(isReadWithIdentifier({}));
    EXPECT_FALSE(isReadWithIdentifier({0x05, 0x01, 0xaa}));
    EXPECT_FALSE(isReadWithIdentifier({0x04, 0x01, 0xaa, 0xbb}));
    EXPECT_FALSE(isReadWithIdentifier({0x04, 0x81, 0x01, 0xaa}));
    const Bytes one = extension(0x0e, {0x04, 0x01, 0xaa});
    EXPECT_FALSE(isReadWith(&Parts::extensions, extensions({one, one})));
}

// The value of an authority key identifier with these parts.
Bytes authority(std::initializer_list<Bytes> parts) {
    return extensions({extension(0x23, sequence(parts))});
}

TEST(CertificateFields, NameTheAuthorityByKeyNameAndSerialNumber) {
    const Bytes key = element(Ber::contextPrimitive(0), {0xaa});
    const Bytes name = element(Ber::contextConstructed(1),
                               element(Ber::contextConstructed(4), nameOf("Authority")));
    const Bytes serialNumber = element(Ber::contextPrimitive(2), {0xbb});
    Parts parts;
    parts.extensions = authority({key, name, serialNumber});
    const Bytes der = parts.certificate();
    const auto fields = readCertificate(der);
    ASSERT_TRUE(fields);
    EXPECT_EQ(copied(fields->authority.keyIdentifier.value_or(ByteSpan())), Bytes{0xaa});
    EXPECT_EQ(element(Ber::sequence, copied(fields->authority.issuer.content)),
              nameOf("Authority"));
    EXPECT_EQ(copied(fields->authority.serialNumber.value_or(ByteSpan())), Bytes{0xbb});
    EXPECT_FALSE(isReadWith(&Parts::extensions, authority({name, key})));
    EXPECT_FALSE(isReadWith(&Parts::extensions, authority({serialNumber, name})));
    EXPECT_FALSE(isReadWith(&Parts::extensions, authority({key, name, serialNumber, null})));
    EXPECT_FALSE(isReadWith(&Parts::extensions, authority({{Ber::contextPrimitive(0), 0x7f}})));
    EXPECT_FALSE(isReadWith(&Parts::extensions, authority({{Ber::contextPrimitive(2), 0x7f}})));
    EXPECT_FALSE(isReadWith(&Parts::extensions, extensions({extension(0x23, null)})));
}

TEST(CertificateFields, NeedAuthorityNamesOfTheFormThatTheirTagSays) {
    const auto isReadWithName = [](unsigned number, const Bytes& content) {
        const Bytes name = element(Ber::contextConstructed(number), content);
        return isReadWith(&Parts::extensions,
                          authority({element(Ber::contextConstructed(1), name)}));
    };
    const Bytes text = element(Ber::ia5String, {'a'});
    const Bytes octets = element(Ber::octetString, {1});
    const Bytes id = element(Ber::objectIdentifier, {1});
    for (const unsigned number : {0U, 3U, 5U}) {
        EXPECT_TRUE(isReadWithName(number, octets)) << number;
        EXPECT_TRUE(isReadWithName(number, nameOf("a"))) << number;
        EXPECT_FALSE(isReadWithName(number, {})) << number;
        EXPECT_FALSE(isReadWithName(number, joined({text, text}))) << number;
    }
    for (const unsigned number : {1U, 2U, 6U}) {
        EXPECT_TRUE(isReadWithName(number, text)) << number;
        EXPECT_FALSE(isReadWithName(number, octets)) << number;
        EXPECT_FALSE(isReadWithName(number, joined({text, text}))) << number;
    }
    EXPECT_TRUE(isReadWithName(4, nameOf("a")));
    EXPECT_FALSE(isReadWithName(4, {}));
    EXPECT_FALSE(isReadWithName(4, text));
    EXPECT_FALSE(isReadWithName(4, joined({nameOf("a"), text})));
    EXPECT_TRUE(isReadWithName(7, octets));
    EXPECT_FALSE(isReadWithName(7, text));
    EXPECT_TRUE(isReadWithName(8, id));
    EXPECT_FALSE(isReadWithName(8, octets));
    EXPECT_FALSE(isReadWithName(9, octets));
    EXPECT_FALSE(isReadWith(&Parts::extensions, authority({{Ber::contextConstructed(1), 0x7f}})));
    EXPECT_FALSE(isReadWith(
        &Parts::extensions,
        authority({element(Ber::contextConstructed(1), {Ber::contextConstructed(4), 0x7f})})));
}

TEST(CertificateFields, KeepTheLastOfSeveralNames) {
    const auto directoryName = [](const std::string& value) {
        return element(Ber::contextConstructed(4), nameOf(value));
    };
    Parts parts;
    parts.extensions = authority(
        {element(Ber::contextConstructed(1), joined({directoryName("A"), directoryName("B")}))});
    parts.subject = sequence({element(Ber::set, joined({nameAttribute(commonName, "C"),
                                                        nameAttribute(organization, "O")})),
                              element(Ber::set, nameAttribute(commonName, "D"))});
    const Bytes der = parts.certificate();
    const auto fields = readCertificate(der);
    ASSERT_TRUE(fields);
    EXPECT_EQ(copied(fields->authority.issuer.parts.commonName), Bytes{'B'});
    EXPECT_EQ(copied(fields->subject.parts.commonName), Bytes{'D'});
    EXPECT_EQ(copied(fields->subject.parts.organization), Bytes{'O'});
    EXPECT_TRUE(fields->subject.parts.email.empty());
}

TEST(CertificateFields, NeedNamesOfSetsOfPairs) {
    const Bytes id = element(Ber::objectIdentifier, commonName);
    const Bytes pair = nameAttribute(commonName, "a");
    for (const auto part : {&Parts::issuer, &Parts::subject}) {
        const auto isReadWithSet = [part](const Bytes& content) {
            return isReadWith(part, sequence({element(Ber::set, content)}));
        };
        EXPECT_TRUE(isReadWithSet(pair));
        EXPECT_FALSE(isReadWithSet({}));
        EXPECT_FALSE(isReadWithSet(joined({pair, null})));
        EXPECT_FALSE(isReadWithSet(sequence({})));
        EXPECT_FALSE(isReadWithSet(sequence({id})));
        EXPECT_FALSE(isReadWithSet(sequence({null, null})));
        EXPECT_FALSE(isReadWithSet(sequence({id, cut})));
        EXPECT_FALSE(isReadWithSet(sequence({id, null, null})));
        EXPECT_FALSE(isReadWith(part, sequence({})));
        EXPECT_FALSE(isReadWith(part, sequence({sequence({pair})})));
        EXPECT_FALSE(isReadWith(part, sequence({element(Ber::set, pair), null})));
    }
}

} // namespace

} // namespace Vestrel::Tests
