// SPDX-License-Identifier: Apache-2.0
// The ring-buffer trace: the last events of the process, kept for whoever asks afterwards.
#pragma once

#include "platform/Export.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Zell {
class TypeData;
}

namespace Brisklog {

struct VESTREL_EXPORT Event {
    std::uint64_t sequence; // counts from 1 over the life of the process
    std::chrono::system_clock::time_point time;
    int level;
    std::string handle;
    std::string format; // the function's full signature, ": " and one "%s" per value
    std::vector<std::string> values;

    // The format with the values in place of the "%s".
    std::string text() const;

    // sequence, time (universal, as text), level, handle and text.
    static const Zell::TypeData& typeData();
};

// How much is kept. The oldest events go first; a value is cut at valueBytes.
struct Limits {
    std::size_t events = 1024;
    std::size_t bytes = std::size_t{1} << 20; // of values and formats together
    std::size_t valueBytes = 4096;
};

VESTREL_EXPORT void limitsAre(const Limits& limits);

// Adds an event; sequence and time are filled in.
VESTREL_EXPORT void eventIs(int level, const std::string& handle, const char* signature,
                            std::vector<std::string> values);

// A copy of what is kept, oldest first.
VESTREL_EXPORT std::vector<Event> events();

// How many events were dropped since the start to stay within the limits.
VESTREL_EXPORT std::uint64_t dropped();

VESTREL_EXPORT void eventsDelAll();

} // namespace Brisklog
