// SPDX-License-Identifier: Apache-2.0
// How much memory a process has.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <fstream>
#include <string>

namespace Vestrel::Tests {

/// A field of /proc/PID/status in bytes, such as "VmHWM", the most that was ever resident; 0 where
/// there is none.
inline std::size_t memoryOf(pid_t process, const std::string& field) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string name; status >> name;) {
        std::size_t kibibytes = 0;
        if (name == field + ":" && status >> kibibytes) {
            return kibibytes * 1024;
        }
    }
    return 0;
}

/// Sanitizers keep what is freed, so that no bound holds.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool isMemoryReused = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool isMemoryReused = false;
#else
inline constexpr bool isMemoryReused = true;
#endif
#else
inline constexpr bool isMemoryReused = true;
#endif

} // namespace Vestrel::Tests
