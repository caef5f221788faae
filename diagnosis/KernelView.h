// SPDX-License-Identifier: Apache-2.0
// What the running kernel shows of that by which it judges certificates.
#pragma once

#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel {

struct KeyringView {
    std::string name;
    int error = 0;                     // 0, or why the keyring could not be found or read
    bool isWritable = false;           // by the user of this process
    std::vector<std::string> keys;     // descriptions of its keys
    std::vector<std::string> keyrings; // names of the keyrings linked into it
};

// A value, so that a diagnosis can be made for a kernel that is not there.
struct KernelView {
    std::vector<KeyringView> keyrings; // those that were asked for
    bool isRoot = false;               // others are not shown every keyring
    int major = 0;                     // version of the kernel
    int minor = 0;
    bool isTrustNarrowed = false; // "ca_keys=" on its command line: fewer authorities count
    std::optional<std::set<std::string>> algorithms; // that it has ready; empty: it does not say
    std::optional<std::set<std::string>> blacklist;  // such as "tbs:" and the hash; the same

    const KeyringView* keyring(std::string_view name) const; // null when it was not asked for
};

// Asks the running kernel, for the keyrings of these names. Throws only when memory runs out.
KernelView kernelView(std::span<const char* const> keyringNames);

} // namespace Vestrel
