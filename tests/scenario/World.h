// SPDX-License-Identifier: Apache-2.0
// One keyring, its directory's maps and its notification queue, as they may be.
#pragma once

#include <keyutils.h>

#include <compare>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Vestrel::Tests {

/// A number of our own for a key; which serial the kernel gave it shows later.
using KeyNumber = int;

/// Kept as plain values, so that worlds can be copied and compared.
struct World {
    struct Key {
        std::string description; // the kernel's, uncut
        bool isHeld;             // by another process, so that it never dies
        bool isGone;             // known not to be describable any more

        friend auto operator<=>(const Key&, const Key&) = default;
    };

    struct Notice {
        bool isLink; // else an unlink
        KeyNumber key;

        friend auto operator<=>(const Notice&, const Notice&) = default;
    };

    // The kernel's side.
    std::map<KeyNumber, Key> keys;
    KeyNumber lastKey = 0;
    std::map<std::string, KeyNumber> members; // of the keyring, by description
    std::vector<Notice> queue;
    bool hasLostTrust = false; // the links to the keys that certificates are judged by

    // The collection's side.
    bool isRunning = false;
    std::map<KeyNumber, std::string> records; // with the description on record
    std::map<std::string, std::string> fileToDescription;
    std::map<std::string, std::set<std::string>> descriptionToFile;
    std::multiset<std::string> messages; // since they were last looked at

    // What has shown so far.
    std::map<KeyNumber, key_serial_t> serials;

    friend auto operator<=>(const World&, const World&) = default;
};

/// Decides what the rules leave open. Made once for each run of the rules; the runs go through all
/// the ways, one after another.
class Choices {
public:
    /// One of 0 to count - 1.
    std::size_t operator()(std::size_t count);

    /// Prepares the next way; false when there is none left.
    bool next();

private:
    struct Choice {
        std::size_t taken;
        std::size_t count;
    };

    std::vector<Choice> choices_;
    std::size_t made_ = 0;
};

} // namespace Vestrel::Tests
