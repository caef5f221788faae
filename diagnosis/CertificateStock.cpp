// SPDX-License-Identifier: Apache-2.0
// Gathers certificate files.
#include "diagnosis/CertificateStock.h"

#include "keymodel/CertificateDescription.h"
#include "keymodel/CertificateFile.h"
#include "keymodel/IntegrityConstants.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace Vestrel {

namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<std::uint8_t>;

// Takes the text up to the end line of its first PEM block, with that; all of it without one.
std::string_view blockTaken(std::string_view& text) {
    const std::size_t mark = text.find("\n-----END ");
    const std::size_t end = mark == std::string_view::npos ? mark : text.find('\n', mark + 1);
    const std::string_view block = text.substr(0, end);
    text.remove_prefix(block.size());
    return block;
}

// With the directory's true path, but the entry itself as it is named.
fs::path entryOf(const fs::path& path) {
    std::error_code error;
    const fs::path directory = fs::weakly_canonical(fs::absolute(path, error).parent_path(), error);
    return directory / path.filename();
}

} // namespace

bool isSameEntry(const std::string& one, const std::string& other) {
    return entryOf(one) == entryOf(other);
}

std::vector<std::string> directoryFiles(const std::string& keyring) {
    const std::string directory(IntegrityConstants().keyringPathPrefix(keyring).view());
    std::vector<std::string> paths;
    std::error_code error;
    if (!fs::is_directory(fs::status(directory, error))) {
        return paths;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (fs::is_regular_file(fs::status(entry.path(), error))) {
            paths.push_back(entry.path().string());
        }
    }
    std::ranges::sort(paths);
    return paths;
}

void CertificateStock::directoriesAdd(std::span<const char* const> keyringNames) {
    for (const char* const name : keyringNames) {
        try {
            directoryAdd(name);
        } catch (const fs::filesystem_error&) {
            continue;
        }
    }
}

void CertificateStock::directoryAdd(const std::string& keyring) {
    for (const std::string& path : directoryFiles(keyring)) {
        if (auto der = readCertificateFile(path.c_str())) {
            add(path, keyring, *std::move(der));
        }
    }
}

bool CertificateStock::fileAdd(const std::string& path) {
    const auto content = readFileContent(path.c_str());
    if (!content) {
        return false;
    }
    bool isAny = add(path, "", *content); // in DER
    std::string_view rest(reinterpret_cast<const char*>(content->data()),
                          isAny ? 0 : content->size());
    while (!rest.empty()) {
        const std::string_view block = blockTaken(rest);
        isAny = add(path, "", derOf({block.begin(), block.end()})) || isAny;
    }
    errno = isAny ? 0 : EBADMSG;
    return isAny;
}

std::vector<std::string> CertificateStock::carriers(const std::string& keyring,
                                                    const std::string& description,
                                                    const std::string& butNot) const {
    std::vector<std::string> paths;
    for (const StockedCertificate& certificate : certificates_) {
        if (certificate.keyring == keyring && certificate.description == description &&
            !isSameEntry(certificate.path, butNot)) {
            paths.push_back(certificate.path);
        }
    }
    return paths;
}

bool CertificateStock::add(const std::string& path, const std::string& keyring, Bytes der) {
    std::string description = certificateDescription(der);
    if (description.empty()) {
        return false;
    }
    certificates_.push_back({path, keyring, std::move(der), std::move(description)});
    return true;
}

} // namespace Vestrel
