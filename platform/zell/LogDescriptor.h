// SPDX-License-Identifier: Apache-2.0
// The static record that defines one log message. Includes nothing, so that its layout can be
// checked for any target.
#pragma once

namespace Zell {

// Its texts are constants: they stay what and where they are. Six words, read from the library's
// log descriptor section by the device's logging framework.
struct LogDescriptor {
    const char* name;
    const char* format; // printf style, "%s" only
    const char* explanation;
    const char* recommendedAction; // a text, or one of the markers below
    int severity;                  // as syslog(3) counts: 4 is a warning
    unsigned reserved;             // 0
};

inline constexpr int severityWarning = 4;

// Recommended actions that the logging framework words itself.
inline constexpr char contactSupportIfItPersists[] = "\x01";
inline constexpr char noActionIsRequired[] = "\x02";

static_assert(sizeof(LogDescriptor) == 4 * sizeof(void*) + 2 * sizeof(int));

} // namespace Zell
