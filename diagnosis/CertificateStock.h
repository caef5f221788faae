// SPDX-License-Identifier: Apache-2.0
// The certificate files that are at hand: those of the keyrings' directories, and others.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Vestrel {

// The paths of the regular files in the keyring's directory, sorted; none when it is not there.
// Throws std::filesystem::filesystem_error when it cannot be read.
std::vector<std::string> directoryFiles(const std::string& keyring);

// Whether both paths name one entry of one directory; two links to a file are two entries.
bool isSameEntry(const std::string& one, const std::string& other);

struct StockedCertificate {
    std::string path;
    std::string keyring; // whose directory it lies in; empty: in none
    std::vector<std::uint8_t> der;
    std::string description; // never empty
};

class CertificateStock {
public:
    // Takes every certificate file of these keyrings' directories, as a start of the agent would
    // see them; what cannot be read is left out.
    void directoriesAdd(std::span<const char* const> keyringNames);

    // Takes every certificate in the file, which may hold several in PEM; false with errno when it
    // cannot be read, EBADMSG when it holds none.
    bool fileAdd(const std::string& path);

    const std::vector<StockedCertificate>& certificates() const { return certificates_; }

    // The other files of the keyring's directory that carry the description.
    std::vector<std::string> carriers(const std::string& keyring, const std::string& description,
                                      const std::string& butNot) const;

private:
    void directoryAdd(const std::string& keyring);
    bool add(const std::string& path, const std::string& keyring, std::vector<std::uint8_t> der);

    std::vector<StockedCertificate> certificates_;
};

} // namespace Vestrel
