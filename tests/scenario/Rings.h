// SPDX-License-Identifier: Apache-2.0
// The keyrings of the scenarios and the directories in which they play.
#pragma once

#include <array>
#include <string>

namespace Vestrel::Tests {

struct Ring {
    const char* place;
    const char* keyring;
    bool isWritable; // whether the kernel lets user space add and unlink keys
    bool keepsTrust; // holds what certificates for it are judged by, which nobody can put back
};

/// In the order in which they are set up.
inline constexpr std::array<Ring, 4> rings{{{"ima", ".ima", true, false},
                                            {"secondary", ".secondary_trusted_keys", true, true},
                                            {"builtin", ".builtin_trusted_keys", false, true},
                                            {"machine", ".machine", false, true}}};

/// Which nobody watches, in one file system with the certificate directories.
inline constexpr const char* unwatchedPlace = "out";

/// The real directory of a place.
inline std::string directoryOf(const std::string& place) {
    if (place == unwatchedPlace) {
        return "/etc/elsewhere";
    }
    const bool isShort = place == "ima" || place == "machine";
    return "/etc/keys/" + place + (isShort ? "" : "_trusted_keys");
}

} // namespace Vestrel::Tests
