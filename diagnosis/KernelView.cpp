// SPDX-License-Identifier: Apache-2.0
// Asks the kernel through libkeyutils, uname(2) and /proc.
#include "diagnosis/KernelView.h"

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

// "type;uid;gid;permissions;description"; the description may hold anything.
struct KeyText {
    std::string type;
    unsigned long uid = 0;
    unsigned long permissions = 0;
    std::string description;
};

std::optional<KeyText> parsed(std::string_view text) {
    std::vector<std::string> fields;
    for (int i = 0; i < 4; ++i) {
        const std::size_t end = text.find(';');
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        fields.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return KeyText{fields[0], std::strtoul(fields[1].c_str(), nullptr, 10),
                   std::strtoul(fields[3].c_str(), nullptr, 16), std::string(text)};
}

std::optional<KeyText> described(key_serial_t key) {
    char* text = nullptr;
    if (keyctl_describe_alloc(key, &text) == -1) {
        return std::nullopt;
    }
    const std::unique_ptr<char, decltype(&std::free)> holder(text, &std::free);
    return parsed(text);
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
        const auto text = described(member);
        if (text && text->type == "keyring") {
            view.keyrings.push_back(text->description);
        } else if (text) {
            view.keys.push_back(text->description);
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
    const auto text = described(serial);
    const auto members = text ? membersOf(serial) : std::nullopt;
    if (!members) {
        view.error = errno;
        return view;
    }
    view.isWritable = text->uid == geteuid() && (text->permissions & userMayWrite) != 0;
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
