// SPDX-License-Identifier: Apache-2.0
// The log facility of the process: where messages go, and how many of them.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Duration.h"
#include "platform/orvo/String.h"
#include "platform/zell/LogDescriptor.h"

#include <chrono>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace Zell {

class LogHandle;
class TypeData;

struct VESTREL_EXPORT LogMessage {
    const LogDescriptor& descriptor;
    std::span<const Orvo::String> arguments; // empty in a report of suppressed messages
    std::string_view line;                   // the name, ": ", the text and a line end

    // The line without its end, and without the name as well.
    std::string_view withoutEnd() const noexcept;
    std::string_view text() const noexcept;
};

// What a message refers to is valid during the call.
using LogSink = std::function<void(const LogMessage& message)>;

using LogClock = std::function<std::chrono::steady_clock::time_point()>;

// How many messages of one kind pass: `burst` at once, refilled evenly over `interval`.
struct LogLimit {
    unsigned burst = 100;
    Orvo::Duration interval = Orvo::Duration(std::chrono::seconds(10));
};

// Used from the event thread. The table of limits holds at most maxBuckets kinds; the one that was
// unused for longest makes room.
class VESTREL_EXPORT LogFacility {
public:
    static constexpr std::size_t maxBuckets = 1024;

    // Without a sink of the host's own, messages go to the journal where it runs, else to
    // syslog(3). A sink that sets another one is called to its end first.
    static void sinkIs(LogSink sink);

    // The limit of handles that name none.
    static void defaultLimitIs(const LogLimit& limit);
    static LogLimit defaultLimit();

    // Replaces the clock; null restores the monotonic one. Forgets every limit's state.
    static void clockIs(LogClock clock);

    // Raised and refused since the start.
    static std::uint64_t messages();
    static std::uint64_t suppressed();

    // Both as attributes, for views of the process; the object may be null.
    static const TypeData& typeData();

    // Reports the suppressed messages of every kind whose interval has passed; with `all` of every
    // kind. The event loop calls it by itself; a host calls it at its end.
    static void reportSuppressed(bool all = false);

private:
    friend class LogHandle;
    static bool okToLog(const LogHandle& handle, unsigned hash);
    static void log(const LogDescriptor& descriptor, std::span<const Orvo::String> arguments);
};

} // namespace Zell
