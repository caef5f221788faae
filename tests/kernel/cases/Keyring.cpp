// SPDX-License-Identifier: Apache-2.0
// Asks the kernel through libkeyutils.
#include "tests/kernel/cases/Keyring.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace Vestrel::Tests {

namespace {

constexpr int fieldsBeforeDescription = 4;

template <typename Result>
Result required(Result result, const std::string& what) {
    if (result == -1) {
        throw std::runtime_error(what + ": " + std::strerror(errno));
    }
    return result;
}

bool isKeyring(std::string_view text) {
    return text.starts_with("keyring;");
}

std::string descriptionIn(const std::string& text) {
    std::size_t begin = 0;
    for (int field = 0; field < fieldsBeforeDescription; ++field) {
        begin = text.find(';', begin) + 1;
    }
    return text.substr(begin);
}

} // namespace

Keyring Keyring::named(const std::string& name) {
    return Keyring(required(find_key_by_type_and_desc("keyring", name.c_str(), 0), name));
}

Keyring Keyring::made(const std::string& name) {
    return Keyring(
        required(add_key("keyring", name.c_str(), nullptr, 0, KEY_SPEC_PROCESS_KEYRING), name));
}

std::vector<key_serial_t> Keyring::members() const {
    void* buffer = nullptr;
    const int bytes = required(keyctl_read_alloc(serial_, &buffer), "keyctl_read_alloc");
    const std::unique_ptr<void, decltype(&std::free)> holder(buffer, &std::free);
    std::vector<key_serial_t> members(static_cast<std::size_t>(bytes) / sizeof(key_serial_t));
    if (!members.empty()) {
        std::memcpy(members.data(), buffer, members.size() * sizeof(key_serial_t));
    }
    return members;
}

std::vector<key_serial_t> Keyring::keys() const {
    auto keys = members();
    std::erase_if(keys, [](key_serial_t key) { return isKeyring(describe(key)); });
    return keys;
}

std::vector<std::string> Keyring::descriptions() const {
    std::vector<std::string> descriptions;
    for (const key_serial_t key : keys()) {
        descriptions.push_back(descriptionOf(key));
    }
    std::ranges::sort(descriptions);
    return descriptions;
}

key_serial_t Keyring::keyOf(const std::string& description) const {
    for (const key_serial_t key : keys()) {
        if (descriptionOf(key) == description) {
            return key;
        }
    }
    return 0;
}

key_serial_t Keyring::tryAdd(const Bytes& certificate) const {
    return add_key("asymmetric", nullptr, certificate.data(), certificate.size(), serial_);
}

key_serial_t Keyring::add(const Bytes& certificate) const {
    return required(tryAdd(certificate), "add_key");
}

key_serial_t Keyring::addUser(const std::string& description) const {
    return required(add_key("user", description.c_str(), "x", 1, serial_), "add_key");
}

void Keyring::link(key_serial_t key) const {
    required(keyctl_link(key, serial_), "keyctl_link");
}

void Keyring::unlink(key_serial_t key) const {
    required(keyctl_unlink(key, serial_), "keyctl_unlink");
}

void Keyring::clear() const {
    required(keyctl_clear(serial_), "keyctl_clear");
}

void Keyring::unlinkKeys() const {
    for (const key_serial_t key : keys()) {
        unlink(key);
    }
}

std::string describe(key_serial_t key) {
    char* text = nullptr;
    if (keyctl_describe_alloc(key, &text) == -1) {
        return {};
    }
    const std::unique_ptr<char, decltype(&std::free)> holder(text, &std::free);
    return text;
}

std::string descriptionOf(key_serial_t key) {
    return descriptionIn(describe(key));
}

void emptyProcessKeyring() {
    // Made here when there is none yet.
    required(keyctl_get_keyring_ID(KEY_SPEC_PROCESS_KEYRING, 1), "process keyring");
    required(keyctl_clear(KEY_SPEC_PROCESS_KEYRING), "keyctl_clear");
}

} // namespace Vestrel::Tests
