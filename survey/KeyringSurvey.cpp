// SPDX-License-Identifier: Apache-2.0
// Reads a keyring's members and the certificates of its directory.
#include "survey/KeyringSurvey.h"

#include "keymodel/IntegrityConstants.h"
#include "keymodel/IntegrityKeyLoader.h"
#include "keymodel/KernelKeyText.h"
#include "keymodel/TemporarySuffix.h"

#include <keyutils.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

namespace Vestrel {

namespace fs = std::filesystem;

namespace {

constexpr char fieldDelimiter = ';';

struct Freed {
    void operator()(void* memory) const { std::free(memory); } // NOLINT: the C library's
};

// Nothing for what is a keyring or cannot be described.
std::optional<IntegrityKey> described(S32 serial) {
    char* text = nullptr;
    if (keyctl_describe_alloc(serial, &text) == -1) {
        return std::nullopt;
    }
    const std::unique_ptr<char, Freed> holder(text);
    const KernelKeyText key(text);
    if (key.isKeyring()) {
        return std::nullopt;
    }
    return IntegrityKey{serial, recordedDescription(key.description), key.type};
}

void keysRead(KeyringSurvey& survey) {
    void* buffer = nullptr;
    const int bytes = keyctl_read_alloc(survey.serial, &buffer);
    if (bytes == -1) {
        survey.keyringError = errno;
        return;
    }
    const std::unique_ptr<void, Freed> holder(buffer);
    for (std::size_t i = 0; i < static_cast<std::size_t>(bytes) / sizeof(S32); ++i) {
        S32 serial = 0;
        std::memcpy(&serial, static_cast<const char*>(buffer) + i * sizeof serial, sizeof serial);
        survey.members.insert(serial);
        if (const auto key = described(serial)) {
            survey.keys.push_back(*key);
        }
    }
}

void keyringRead(KeyringSurvey& survey) {
    const key_serial_t found = find_key_by_type_and_desc("keyring", survey.keyringName.c_str(), 0);
    if (found == -1) {
        survey.keyringError = errno;
        return;
    }
    survey.serial = found;
    keysRead(survey);
}

void filesRead(KeyringSurvey& survey) {
    const IntegrityKeyLoader loader;
    std::error_code failure;
    fs::directory_iterator entry(survey.directory, failure);
    for (; !failure && entry != fs::directory_iterator(); entry.increment(failure)) {
        std::error_code gone;
        const std::string path = entry->path().string();
        if (!path.ends_with(temporarySuffix) && fs::is_regular_file(entry->path(), gone)) {
            survey.files[path] = loader.getCertDescription(path).view();
        }
    }
    survey.directoryError = failure.value();
}

unsigned long inodeOf(const std::string& path) {
    struct stat status {};

    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

} // namespace

bool KeyringSurvey::hasKeyOf(std::string_view description) const {
    const std::string recorded = recordedDescription(description);
    return std::ranges::any_of(
        keys, [&](const IntegrityKey& key) { return key.description.view() == recorded; });
}

KeyringSurvey surveyed(const std::string& keyringName) {
    KeyringSurvey survey;
    survey.keyringName = keyringName;
    survey.directory = IntegrityConstants().keyringPathPrefix(keyringName).view();
    survey.directoryInode = inodeOf(survey.directory);
    keyringRead(survey);
    // What may not be seen is not found, as if it were not there.
    survey.isHidden = geteuid() != 0 && survey.keyringError != 0;
    filesRead(survey);
    return survey;
}

std::string recordedDescription(std::string_view description) {
    return std::string(description.substr(0, description.find(fieldDelimiter)));
}

} // namespace Vestrel
