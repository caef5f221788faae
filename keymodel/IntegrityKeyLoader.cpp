// SPDX-License-Identifier: Apache-2.0
// From a certificate file to a key of a kernel keyring.
#include "keymodel/IntegrityKeyLoader.h"

#include "keymodel/CertificateDescription.h"
#include "keymodel/CertificateFile.h"
#include "keymodel/KernelKeyText.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace Vestrel {

namespace {

constexpr key_serial_t failed = -1;

// Without a description of ours the kernel proposes one from the certificate.
key_serial_t addCertificate(const std::vector<std::uint8_t>& der, key_serial_t keyring) {
    return add_key("asymmetric", nullptr, der.data(), der.size(), keyring);
}

} // namespace

std::optional<key_serial_t> IntegrityKeyLoader::keyring(const Orvo::String& name) const {
    if (const auto known = keyrings_.find(name); known != keyrings_.end()) {
        return known->second;
    }
    const key_serial_t serial = find_key_by_type_and_desc("keyring", name.c_str(), 0);
    // -1 would name the caller's own thread keyring from here on.
    if (serial == failed) {
        return std::nullopt;
    }
    keyrings_[name] = serial;
    return serial;
}

bool IntegrityKeyLoader::stale(key_serial_t serial, const Orvo::String& name) const {
    char* text = nullptr;
    if (keyctl_describe_alloc(serial, &text) == failed) {
        return true;
    }
    const std::unique_ptr<char, decltype(&std::free)> holder(text, &std::free);
    const KernelKeyText key(text);
    return !key.isKeyring() || key.description != name.view();
}

key_serial_t IntegrityKeyLoader::loadKey(const Orvo::String& file,
                                         const Orvo::String& keyringName) const {
    const auto der = readCertificateFile(file.c_str());
    if (!der) {
        return failed;
    }
    const auto serial = keyring(keyringName);
    if (!serial) {
        return failed;
    }
    key_serial_t key = addCertificate(*der, *serial);
    const int cause = errno;
    if (key == failed && stale(*serial, keyringName)) {
        keyrings_.erase(keyringName);
        const auto found = keyring(keyringName);
        return found ? addCertificate(*der, *found) : failed;
    }
    errno = cause;
    return key;
}

Orvo::String IntegrityKeyLoader::getCertDescription(const Orvo::String& file) const {
    const auto der = readCertificateFile(file.c_str());
    return der ? Orvo::String(certificateDescription(*der)) : Orvo::String();
}

} // namespace Vestrel
