// SPDX-License-Identifier: Apache-2.0
// Asks the kernel through libkeyutils, uname(2) and /proc.
#include "diagnosis/KernelView.h"

#include "keymodel/KernelKeyText.h"

#include <keyutils.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

namespace Vestrel {

namespace {

constexpr unsigned userMayWrite = 0x040000;
constexpr const char* blacklistName = ".blacklist";

// Null with errno when the kernel says nothing of it.
using KernelText = std::unique_ptr<char, decltype(&std::free)>;

KernelText described(key_serial_t key) {
    char* text = nullptr;
    return {keyctl_describe_alloc(key, &text) == -1 ? nullptr : text, &std::free};
}

std::optional<unsigned long> numberOf(std::string_view text, int base) {
    unsigned long number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

bool mayWrite(const KernelKeyText& keyring) {
    return numberOf(keyring.uid, 10) == geteuid() &&
           (numberOf(keyring.permissions, 16).value_or(0) & userMayWrite) != 0;
}

// Null with errno when the keyring cannot be read.
std::optional<std::vector<key_serial_t>> membersOf(key_serial_t keyring) {
    void* buffer = nullptr;
    const int bytes = keyctl_read_alloc(keyring, &buffer);
    if (bytes == -1) {
        return std::nullopt;
    }
    const std::unique_ptr<void, decltype(&std::free)> holder(buffer, &std::free);
    std::vector<key_serial_t> members(static_cast<std::size_t>(bytes) / sizeof(key_serial_t));
    if (!members.empty()) {
        std::memcpy(members.data(), buffer, members.size() * sizeof(key_serial_t));
    }
    return members;
}

// A key that is gone by now is left out.
void membersNoted(const std::vector<key_serial_t>& members, KeyringView& view) {
    for (const key_serial_t member : members) {
        if (const KernelText text = described(member)) {
            const KernelKeyText key(text.get());
            (key.isKeyring() ? view.keyrings : view.keys).emplace_back(key.description);
        }
    }
}

KeyringView keyringView(const std::string& name) {
    KeyringView view;
    view.name = name;
    const key_serial_t serial = find_key_by_type_and_desc("keyring", name.c_str(), 0);
    // -1 would name the caller's own thread keyring from here on.
    if (serial == -1) {
        view.error = errno;
        return view;
    }
    const KernelText text = described(serial);
    const auto members = text ? membersOf(serial) : std::nullopt;
    if (!members) {
        view.error = errno;
        return view;
    }
    view.isWritable = mayWrite(KernelKeyText(text.get()));
    membersNoted(*members, view);
    return view;
}

std::optional<std::set<std::string>> blacklist() {
    const KeyringView view = keyringView(blacklistName);
    if (view.error == ENOKEY && geteuid() == 0) {
        return std::set<std::string>(); // a kernel without one
    }
    if (view.error != 0) {
        return std::nullopt;
    }
    return std::set<std::string>(view.keys.begin(), view.keys.end());
}

// Lines such as "name         : sha256".
std::optional<std::set<std::string>> algorithms() {
    std::ifstream file("/proc/crypto");
    if (!file) {
        return std::nullopt;
    }
    std::set<std::string> names;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("name ")) {
            names.insert(line.substr(line.find_last_of(' ') + 1));
        }
    }
    return names;
}

void releaseNoted(KernelView& view) {
    utsname system{};
    if (uname(&system) != 0) {
        return;
    }
    const std::string_view release = system.release;
    const char* const end = release.data() + release.size();
    const auto [next, error] = std::from_chars(release.data(), end, view.major);
    if (error == std::errc() && next != end && *next == '.') {
        std::from_chars(next + 1, end, view.minor);
    }
}

bool isTrustNarrowed() {
    std::string line;
    std::getline(std::ifstream("/proc/cmdline"), line);
    return (' ' + line).find(" ca_keys=") != std::string::npos;
}

} // namespace

const KeyringView* KernelView::keyring(std::string_view name) const {
    const auto found = std::ranges::find(keyrings, name, &KeyringView::name);
    return found == keyrings.end() ? nullptr : &*found;
}

KernelView kernelView(std::span<const char* const> keyringNames) {
    KernelView view;
    for (const char* const name : keyringNames) {
        view.keyrings.push_back(keyringView(name));
    }
    view.isRoot = geteuid() == 0;
    view.isTrustNarrowed = isTrustNarrowed();
    view.algorithms = algorithms();
    view.blacklist = blacklist();
    releaseNoted(view);
    return view;
}

} // namespace Vestrel
