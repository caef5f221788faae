// SPDX-License-Identifier: Apache-2.0
// Lines for stderr.
#pragma once

#include "platform/Export.h"

#include <string_view>

namespace Zell {

// Every line is written in one piece. The lines that one handler of the event loop puts are written
// together when it ends, or before they are more than a pipe takes in one piece (4,096 bytes), so
// that a storm of messages costs a system call for some thirty of them. A process that ends inside
// a handler, other than by an assertion, loses what waits. Used from the event thread; lines that
// stderr does not take are lost.
class VESTREL_EXPORT StderrLines {
public:
    // Lines that are put while one lives wait for its end. One inside another changes nothing.
    class VESTREL_EXPORT Together {
    public:
        Together() noexcept;
        ~Together();
        Together(const Together&) = delete;
        Together& operator=(const Together&) = delete;
    };

    static void put(std::string_view line) noexcept;

    // Writes what waits, then the line.
    static void putNow(std::string_view line) noexcept;
};

} // namespace Zell
