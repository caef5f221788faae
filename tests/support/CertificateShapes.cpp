// SPDX-License-Identifier: Apache-2.0
// The table of certificate shapes, by what is special about them.
#include "tests/support/CertificateShapes.h"

#include <iterator>
#include <utility>

namespace Vestrel::Tests {

namespace {

using Shapes = std::vector<CertificateShape>;
using Subject = std::vector<NamePart>;

const std::string keyIdentifier = "a0a1a2a3a4a5a6a7a8a9aaabacadaeafb0b1b2b3";

CertificateShape shape(std::string name, std::string description, const CertificatePlan& plan,
                       bool kernelAccepts = true) {
    return {std::move(name), std::move(description), kernelAccepts,
            [plan](const CertificateAuthority& authority) { return authority.issue(plan); }};
}

CertificatePlan withSubject(Subject subject) {
    CertificatePlan plan;
    plan.subject = std::move(subject);
    return plan;
}

// A shape that differs in its subject; `namePart` is what comes of it.
CertificateShape subject(std::string name, const std::string& namePart, Subject parts) {
    return shape(std::move(name), namePart + ": " + keyIdentifier, withSubject(std::move(parts)));
}

// A subject of one common name of another string type.
CertificateShape stringType(std::string name, const std::string& namePart, int type,
                            std::string bytes) {
    return subject(std::move(name), namePart, {{"CN", std::move(bytes), type}});
}

CertificateShape identifier(std::string name, const std::string& hex, Bytes bytes) {
    CertificatePlan plan;
    plan.keyIdentifierBytes = std::move(bytes);
    return shape(std::move(name), "Leaf: " + hex, plan);
}

CertificateShape serial(std::string name, const std::string& hex, Bytes content) {
    CertificatePlan plan;
    plan.keyIdentifier = KeyIdentifier::none;
    plan.serialNumber = std::move(content);
    return shape(std::move(name), "Leaf: " + hex, plan);
}

CertificateShape key(std::string name, KeyKind kind, bool kernelAccepts) {
    CertificatePlan plan;
    plan.key = kind;
    return shape(std::move(name), "Leaf: " + keyIdentifier, plan, kernelAccepts);
}

CertificateShape validity(std::string name, std::string notBefore, std::string notAfter) {
    CertificatePlan plan;
    plan.notBefore = std::move(notBefore);
    plan.notAfter = std::move(notAfter);
    return shape(std::move(name), "Leaf: " + keyIdentifier, plan);
}

CertificateShape authority(std::string name, AuthorityIdentifier kind) {
    CertificatePlan plan;
    plan.authorityIdentifier = kind;
    return shape(std::move(name), "Leaf: " + keyIdentifier, plan);
}

CertificateShape extension(std::string name, ExtensionPlan extra, bool readable) {
    CertificatePlan plan;
    plan.extensions.push_back(std::move(extra));
    return shape(std::move(name), readable ? "Leaf: " + keyIdentifier : "", plan, readable);
}

std::string repeated(std::size_t count, char byte = 'x') {
    return std::string(count, byte);
}

Shapes nameCombinations() {
    return {
        subject("cn", "Signer", {{"CN", "Signer"}}),
        subject("o", "Example", {{"O", "Example"}}),
        subject("email", "keys@example.org",
                {{"emailAddress", "keys@example.org", V_ASN1_IA5STRING}}),
        subject("o-and-cn", "Example: Signer", {{"O", "Example"}, {"CN", "Signer"}}),
        subject("cn-before-o", "Example: Signer", {{"CN", "Signer"}, {"O", "Example"}}),
        subject("cn-begins-with-o", "Example Signer", {{"O", "Example"}, {"CN", "Example Signer"}}),
        subject("cn-begins-with-short-o", "ExSigner", {{"O", "Ex"}, {"CN", "ExSigner"}}),
        subject("cn-equals-o", "Example", {{"O", "Example"}, {"CN", "Example"}}),
        subject("cn-equals-short-o", "Ex", {{"O", "Ex"}, {"CN", "Ex"}}),
        subject("agree-in-seven", "ExampleSigner", {{"O", "Example Org"}, {"CN", "ExampleSigner"}}),
        subject("agree-in-six", "Exampl Org: ExamplSigner",
                {{"O", "Exampl Org"}, {"CN", "ExamplSigner"}}),
        subject("o-begins-with-short-cn", "Example: Exampl", {{"O", "Example"}, {"CN", "Exampl"}}),
        subject("o-begins-with-cn-of-seven", "Example", {{"O", "Example Org"}, {"CN", "Example"}}),
        subject("differ-in-case", "EXAMPLE: example", {{"O", "EXAMPLE"}, {"CN", "example"}}),
        subject("email-and-cn", "Signer",
                {{"emailAddress", "keys@example.org", V_ASN1_IA5STRING}, {"CN", "Signer"}}),
        subject("email-and-o", "Example",
                {{"emailAddress", "keys@example.org", V_ASN1_IA5STRING}, {"O", "Example"}}),
        subject("several-cn", "Third", {{"CN", "First"}, {"CN", "Second"}, {"CN", "Third"}}),
        subject("several-o", "Second: Signer", {{"O", "First"}, {"CN", "Signer"}, {"O", "Second"}}),
        subject("several-email", "b@example.org",
                {{"emailAddress", "a@example.org", V_ASN1_IA5STRING},
                 {"emailAddress", "b@example.org", V_ASN1_IA5STRING}}),
        subject("one-set-of-o-and-cn", "Example: Signer",
                {{"O", "Example"}, {"CN", "Signer", V_ASN1_UTF8STRING, true}}),
        subject("one-set-of-cn", "Second",
                {{"CN", "First"}, {"CN", "Second", V_ASN1_UTF8STRING, true}}),
        subject("empty-cn", "Example", {{"O", "Example"}, {"CN", ""}}),
        subject("empty-cn-after-cn", "", {{"CN", "Signer"}, {"CN", ""}}),
        subject("empty-o", "Signer", {{"O", ""}, {"CN", "Signer"}}),
        subject("ou-and-c", "", {{"C", "CH", V_ASN1_PRINTABLESTRING}, {"OU", "Unit"}}),
        subject("dc", "", {{"DC", "org", V_ASN1_IA5STRING}, {"DC", "example", V_ASN1_IA5STRING}}),
        subject("dc-and-cn", "Signer",
                {{"DC", "org", V_ASN1_IA5STRING}, {"UID", "u1"}, {"CN", "Signer"}}),
        subject("many-attributes", "Example: Signer",
                {{"C", "CH", V_ASN1_PRINTABLESTRING},
                 {"ST", "Zug"},
                 {"L", "Baar"},
                 {"O", "Example"},
                 {"OU", "Unit"},
                 {"title", "T"},
                 {"serialNumber", "7", V_ASN1_PRINTABLESTRING},
                 {"CN", "Signer"},
                 {"1.3.6.1.4.1.55555.1", "private"},
                 {"description", "d"}}),
        shape("empty-subject", "", withSubject({}), false),
    };
}

Shapes stringTypes() {
    using namespace std::string_literals;
    return {
        stringType("utf8", "Sch\xc3\xbcssel \xe2\x82\xac", V_ASN1_UTF8STRING,
                   "Sch\xc3\xbcssel \xe2\x82\xac"),
        stringType("utf8-invalid", "\xff\xfe\x80", V_ASN1_UTF8STRING, "\xff\xfe\x80"),
        stringType("t61", "Schl\xfcssel", V_ASN1_T61STRING, "Schl\xfcssel"),
        stringType("printable", "Signer", V_ASN1_PRINTABLESTRING, "Signer"),
        stringType("ia5", "Signer", V_ASN1_IA5STRING, "Signer"),
        stringType("numeric", "12 34", V_ASN1_NUMERICSTRING, "12 34"),
        stringType("visible", "Signer", V_ASN1_VISIBLESTRING, "Signer"),
        stringType("general", "Signer", V_ASN1_GENERALSTRING, "Signer"),
        stringType("octets", "Signer", V_ASN1_OCTET_STRING, "Signer"),
        stringType("bits", "", V_ASN1_BIT_STRING, "\0Signer"s),
        stringType("bmp", "", V_ASN1_BMPSTRING, "\0A\0b"s),
        stringType("bmp-beyond-latin", "N-", V_ASN1_BMPSTRING, "\x4e\x2d\0b"s),
        stringType("universal", "", V_ASN1_UNIVERSALSTRING, "\0\0\0A"s),
        subject("bmp-o-and-cn", "", {{"O", "\0A"s, V_ASN1_BMPSTRING}, {"CN", "Signer"}}),
        subject("o-and-bmp-cn", "Example: ", {{"O", "Example"}, {"CN", "\0A"s, V_ASN1_BMPSTRING}}),
        stringType("nul-inside", "Sig", V_ASN1_UTF8STRING, "Sig\0ner"s),
        // The organization is compared with its NUL, so it is not what the common name begins with.
        subject("nul-in-o", "Ex", {{"O", "Ex\0"s}, {"CN", "ExSigner"}}),
        stringType("blanks-around", "  Signer  ", V_ASN1_UTF8STRING, "  Signer  "),
        stringType("only-blank", " ", V_ASN1_UTF8STRING, " "),
        stringType("semicolons", "a;b;;c;", V_ASN1_UTF8STRING, "a;b;;c;"),
        stringType("quotes", "\"a\" 'b' \\", V_ASN1_UTF8STRING, "\"a\" 'b' \\"),
        stringType("newline-and-tab", "a\nb\tc\r", V_ASN1_UTF8STRING, "a\nb\tc\r"),
        stringType("colons", "a: b: c", V_ASN1_UTF8STRING, "a: b: c"),
        stringType("percent", "%s%n %d", V_ASN1_UTF8STRING, "%s%n %d"),
    };
}

// The size of a name is kept in one byte.
Shapes longNames() {
    return {
        subject("cn-of-64", repeated(64), {{"CN", repeated(64)}}),
        subject("cn-of-200", repeated(200), {{"CN", repeated(200)}}),
        subject("cn-of-255", repeated(255), {{"CN", repeated(255)}}),
        subject("cn-of-256", "", {{"CN", repeated(256)}}),
        subject("cn-of-257", "x", {{"CN", repeated(257)}}),
        subject("cn-of-300", repeated(44), {{"CN", repeated(300)}}),
        subject("o-of-255-and-cn-of-255", repeated(255, 'o') + ": " + repeated(255),
                {{"O", repeated(255, 'o')}, {"CN", repeated(255)}}),
        subject("o-of-256-and-cn", "Signer", {{"O", repeated(256)}, {"CN", "Signer"}}),
        subject("cn-of-256-and-o", "Example", {{"O", "Example"}, {"CN", repeated(256)}}),
        subject("cn-of-256-and-email", "a@b",
                {{"emailAddress", "a@b", V_ASN1_IA5STRING}, {"CN", repeated(256)}}),
        subject("cn-of-40000", repeated(64), {{"CN", repeated(40000)}}),
    };
}

Bytes counted(std::size_t count) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i + 1);
    }
    return bytes;
}

Shapes identifiers() {
    const std::string upTo32 = "0102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20";
    const std::string upTo64 =
        upTo32 + "2122232425262728292a2b2c2d2e2f303132333435363738393a3b3c3d3e3f40";
    CertificatePlan tooLong;
    tooLong.keyIdentifierBytes = counted(129);
    CertificatePlan empty;
    empty.keyIdentifierBytes.clear();
    return {
        identifier("identifier-of-1", "00", {0x00}),
        identifier("identifier-of-4", "deadbeef", {0xde, 0xad, 0xbe, 0xef}),
        identifier("identifier-of-20", upTo32.substr(0, 40), counted(20)),
        identifier("identifier-of-32", upTo32, counted(32)),
        identifier("identifier-of-64", upTo64, counted(64)),
        identifier("identifier-of-127", std::string(254, '7'), Bytes(127, 0x77)),
        // The kernel knows only lengths of one byte here, and takes the 0x81 of a longer form for
        // one: it fits just where the identifier and the second length byte are 129 bytes.
        identifier("identifier-of-128", "80" + std::string(256, '7'), Bytes(128, 0x77)),
        shape("identifier-of-129", "", tooLong, false),
        shape("identifier-of-0", "", empty, false),
        serial("serial", "1234", {0x12, 0x34}),
        serial("serial-of-1", "01", {0x01}),
        serial("serial-zero", "00", {0x00}),
        serial("serial-with-high-bit", "00ff", {0x00, 0xff}),
        serial("serial-negative", "ff", {0xff}),
        serial("serial-of-20", upTo32.substr(0, 40), counted(20)),
        serial("serial-of-21-with-high-bit", "00" + std::string(40, '9'),
               [] {
                   Bytes content(21, 0x99);
                   content[0] = 0;
                   return content;
               }()),
        serial("serial-of-64", upTo64, counted(64)),
    };
}

CertificateShape trailingBytes() {
    return {"trailing-bytes", "Leaf: " + keyIdentifier, true, [](const CertificateAuthority& ca) {
                Bytes der = ca.issue({});
                der.insert(der.end(), {0x00, 0x30, 0xff});
                return der;
            }};
}

CertificateShape pem(std::string name, std::string around) {
    return {std::move(name), "Leaf: " + keyIdentifier, true,
            [around = std::move(around)](const CertificateAuthority& ca) {
                return bytesOf(around + toPem(ca.issue({})) + around);
            }};
}

// The size of the element that begins at `at`, header included; its length takes one or three
// bytes.
std::size_t sizeOf(const Bytes& der, std::size_t at) {
    const std::size_t first = der.at(at + 1);
    return first < 0x80 ? 2 + first : 4 + 256U * der.at(at + 2) + der.at(at + 3);
}

Bytes withoutLength(const Bytes& der, std::size_t at) {
    const std::size_t header = der.at(at + 1) < 0x80 ? 2 : 4;
    Bytes element{der.at(at), 0x80};
    element.insert(element.end(), der.begin() + static_cast<std::ptrdiff_t>(at + header),
                   der.begin() + static_cast<std::ptrdiff_t>(at + sizeOf(der, at)));
    element.insert(element.end(), {0x00, 0x00});
    return element;
}

// The whole certificate ends at an end marker.
CertificateShape indefiniteCertificate() {
    return {"indefinite-certificate", "Leaf: " + keyIdentifier, true,
            [](const CertificateAuthority& ca) { return withoutLength(ca.issue({}), 0); }};
}

// The algorithm behind the signed part does.
CertificateShape indefiniteAlgorithm() {
    return {"indefinite-algorithm", "Leaf: " + keyIdentifier, true,
            [](const CertificateAuthority& ca) {
                const Bytes der = ca.issue({});
                const std::size_t algorithm = 4 + sizeOf(der, 4);
                const std::size_t signature = algorithm + sizeOf(der, algorithm);
                Bytes inside(der.begin() + 4, der.begin() + static_cast<std::ptrdiff_t>(algorithm));
                const Bytes open = withoutLength(der, algorithm);
                inside.insert(inside.end(), open.begin(), open.end());
                inside.insert(inside.end(), der.begin() + static_cast<std::ptrdiff_t>(signature),
                              der.end());
                const std::size_t size = inside.size();
                inside.insert(inside.begin(), {0x30, 0x82, static_cast<std::uint8_t>(size >> 8U),
                                               static_cast<std::uint8_t>(size & 0xffU)});
                return inside;
            }};
}

CertificateShape truncated() {
    return {"truncated", "", false, [](const CertificateAuthority& ca) {
                Bytes der = ca.issue({});
                der.pop_back();
                return der;
            }};
}

Shapes others() {
    CertificatePlan version1;
    version1.isVersion1 = true;
    return {
        key("rsa-key", KeyKind::rsa2048, true),
        key("p384-key", KeyKind::p384, true),
        // Readable, though this kernel has no use for the key.
        key("p521-key", KeyKind::p521, false),
        key("ed25519-key", KeyKind::ed25519, false),
        validity("expired", "000101000000Z", "010101000000Z"),
        validity("not-yet-valid", "480101000000Z", "490101000000Z"),
        validity("beyond-2049", "200101000000Z", "99991231235959Z"),
        authority("no-authority-identifier", AuthorityIdentifier::none),
        authority("authority-by-name-and-serial", AuthorityIdentifier::keyNameAndSerial),
        extension("unknown-critical-extension", {"1.3.6.1.4.1.55555.2", {0x04, 0x01, 0x00}, true},
                  true),
        extension("two-identifiers", {"2.5.29.14", {0x04, 0x01, 0x00}}, false),
        extension("damaged-authority-identifier", {"2.5.29.35", {0x04, 0x01, 0x00}}, false),
        shape("version-1", "Leaf: 1234", version1),
        trailingBytes(),
        pem("pem", ""),
        pem("pem-with-text", "Subject: CN = Leaf\n\n"),
        truncated(),
        indefiniteCertificate(),
        indefiniteAlgorithm(),
    };
}

} // namespace

std::vector<CertificateShape> certificateShapes() {
    Shapes all;
    for (Shapes group : {nameCombinations(), stringTypes(), longNames(), identifiers(), others()}) {
        std::move(group.begin(), group.end(), std::back_inserter(all));
    }
    return all;
}

} // namespace Vestrel::Tests
