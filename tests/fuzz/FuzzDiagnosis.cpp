// SPDX-License-Identifier: Apache-2.0
// Bytes that may be a certificate, through what the agent says of a refused file. What stands
// behind the certificate is its issuer, so that signatures of hostile keys are verified as well.
#include "diagnosis/DiagnosisText.h"
#include "diagnosis/SignatureCheck.h"
#include "keymodel/BerReader.h"
#include "keymodel/CertificateDescription.h"
#include "keymodel/CertificateFile.h"
#include "platform/zell/OneLine.h"
#include "tests/fuzz/Fuzz.h"

#include <openssl/err.h>
#include <openssl/x509.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace Vestrel;
using Tests::require;

using Bytes = std::vector<std::uint8_t>;

constexpr std::time_t inTheYear2026 = 1795000000;
constexpr std::array keyringNames{".ima", ".secondary_trusted_keys", ".builtin_trusted_keys"};

void added(CertificateStock& stock, ByteSpan content) {
    static const int file = memfd_create("issuer", MFD_CLOEXEC);
    const auto size = static_cast<ssize_t>(content.size());
    require(ftruncate(file, 0) == 0 && pwrite(file, content.data(), content.size(), 0) == size,
            "the file can be written");
    const std::size_t before = stock.certificates().size();
    const bool isAny = stock.fileAdd("/proc/self/fd/" + std::to_string(file));
    require(isAny == (stock.certificates().size() > before), "a file has certificates or fails");
}

ByteSpan behindFirst(ByteSpan content) {
    BerReader reader(content);
    BerElement first;
    return reader.any(first) ? content.subspan(first.encoding.size()) : ByteSpan();
}

// Every certificate in the input is at hand, and its key is trusted.
Surroundings surroundingsOf(ByteSpan content) {
    Surroundings known;
    known.now = inTheYear2026;
    added(known.stock, content);
    added(known.stock, behindFirst(content));
    std::vector<std::string> keys{"Other: 0123", "named by hand"};
    for (const StockedCertificate& certificate : known.stock.certificates()) {
        keys.push_back(certificate.description);
    }
    known.kernel.keyrings = {
        {".ima", 0, true, {}, {}},
        {".secondary_trusted_keys", 0, true, {}, {".builtin_trusted_keys", ".machine"}},
        {".builtin_trusted_keys", 0, false, keys, {}},
        {".machine", 0, false, {}, {}}};
    known.kernel.isRoot = true;
    known.kernel.major = 6;
    known.kernel.minor = 1;
    known.kernel.algorithms = {"sha256", "rsa", "ecdsa-nist-p256"};
    known.kernel.blacklist.emplace();
    return known;
}

bool isPrintableAscii(const std::string& text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

void requireShowable(const std::string& text, std::size_t size) {
    constexpr std::size_t mostOfOurs = 4096; // words, and the names of keys
    require(text.size() <= 8 * size + mostOfOurs, "a text has no more than its certificate");
    const std::string shown = Zell::oneLine(text);
    require(Zell::isOneLine(shown) && shown.find('\n') == std::string::npos,
            "a text is shown on one line");
}

void requireSense(const Diagnosis& diagnosis, const Bytes& der) {
    const Finding& finding = diagnosis.finding;
    require((finding.verdict == Verdict::accepted) == (finding.reason == Reason::none),
            "what is not accepted has a reason");
    require(!finding.explanation.empty(), "a finding is explained");
    require(diagnosis.description == certificateDescription(der), "the description is its key's");
    require(finding.verdict == Verdict::refused || !diagnosis.description.empty(),
            "only a certificate can be taken");
    require(std::ranges::all_of(diagnosis.remarks, isPrintableAscii),
            "remarks have words and days");
}

void requireWithin(ByteSpan whole, std::initializer_list<ByteSpan> parts) {
    for (const ByteSpan part : parts) {
        require(part.empty() || (part.data() >= whole.data() &&
                                 part.data() + part.size() <= whole.data() + whole.size()),
                "a field lies in its certificate");
    }
}

// By OpenSSL, which refuses an identifier that is not in its only encoding.
bool isKnownIdentifier(ByteSpan id) {
    constexpr std::size_t mostOfAByte = 127;
    Bytes encoding{Ber::objectIdentifier, static_cast<std::uint8_t>(id.size())};
    encoding.insert(encoding.end(), id.begin(), id.end());
    const unsigned char* position = encoding.data();
    const std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> object(
        d2i_ASN1_OBJECT(nullptr, &position, static_cast<long>(encoding.size())), &ASN1_OBJECT_free);
    return id.size() <= mostOfAByte && object != nullptr && OBJ_obj2nid(object.get()) != NID_undef;
}

void requireSense(const CertificateFields& fields, ByteSpan der) {
    const ByteSpan none;
    requireWithin(der, {fields.subject.content, fields.issuer.content, fields.serialNumber,
                        fields.subjectKeyIdentifier.value_or(none), fields.authority.issuer.content,
                        fields.authority.keyIdentifier.value_or(none),
                        fields.authority.serialNumber.value_or(none), fields.publicKey.encoding,
                        fields.publicKey.algorithm, fields.publicKey.curve, fields.toBeSigned,
                        fields.signatureAlgorithm, fields.signature, fields.notBefore.content,
                        fields.notAfter.content, fields.keyUsage.value_or(none),
                        fields.basicConstraints.value_or(none)});
    require(!signatureAlgorithm(fields) || isKnownIdentifier(fields.signatureAlgorithm),
            "a known signature algorithm has the bytes of its identifier");
    require(!keyAlgorithm(fields.publicKey) || isKnownIdentifier(fields.publicKey.algorithm),
            "a known key has the bytes of its identifier");
    requireShowable(algorithmText(fields.signatureAlgorithm), der.size());
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FileContent file{"/etc/keys/ima/refused.der", Bytes(data, data + size),
                           size == 0 ? EINVAL : 0};
    const Bytes der = derOf(file.bytes);
    if (const auto fields = readCertificate(der)) {
        requireSense(*fields, der);
    }
    ERR_clear_error();
    const Surroundings known = surroundingsOf({data, size});
    for (const char* const keyring : keyringNames) {
        const Diagnosis diagnosis = diagnose(file, keyring, known);
        requireSense(diagnosis, der);
        requireShowable(textOf(diagnosis, file, keyring), size);
    }
    require(ERR_peek_error() == 0, "no error is left to others");
    return 0;
}
