// SPDX-License-Identifier: Apache-2.0
// Limits and delivery of log messages.
#include "platform/zell/LogFacility.h"

#include "platform/zell/ActivityManager.h"
#include "platform/zell/LogHandle.h"
#include "platform/zell/LogSinks.h"
#include "platform/zell/RateLimiter.h"
#include "platform/zell/TypeData.h"

#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zell {

namespace {

constexpr std::size_t mostKept = 64 << 10; // in bytes, of memory for the next message
constexpr std::string_view nameEnd = ": ";
constexpr std::string_view lineEnd = "\n";

// The monotonic clock at its last tick: some milliseconds are nothing to limits over seconds, and
// reading it costs a fifth.
std::chrono::steady_clock::time_point lastTick() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return std::chrono::steady_clock::time_point(std::chrono::seconds(time.tv_sec) +
                                                 std::chrono::nanoseconds(time.tv_nsec));
}

struct State {
    RateLimiter limiter;
    LogLimit defaultLimit;
    LogClock clock = lastTick;
    LogSink sink = journalOrSyslogSink();
    std::uint64_t messages = 0;
    std::uint64_t suppressed = 0;
    std::vector<char> line;    // of the last message; kept for its memory
    std::weak_ptr<bool> timer; // alive while the event loop will report by itself
};

// Never destroyed: messages may be raised while static objects are.
State& state() {
    static State* const mine = new State;
    return *mine;
}

BucketRule ruleOf(const LogHandle& handle, LogLimit limit) {
    if (!handle.interval().isZero()) {
        limit.interval = handle.interval();
    }
    if (handle.burst() != 0) {
        limit.burst = handle.burst();
    }
    return {&handle.descriptor(), limit, handle.backoff()};
}

// The format up to its next directive, which it then begins with.
std::string_view plainPart(std::string_view& format) {
    const std::string_view plain = format.substr(0, format.find('%'));
    format.remove_prefix(plain.size());
    return plain;
}

// What the text of a message takes at most.
std::size_t longestText(std::string_view format, std::span<const Orvo::String> arguments) {
    std::size_t size = format.size();
    for (const Orvo::String& argument : arguments) {
        size += argument.size();
    }
    return size;
}

// Returns the place behind it.
char* put(char* place, std::string_view piece) {
    return place + piece.copy(place, piece.size());
}

// There is room for longestText(); returns the place behind the text.
char* putFormatted(char* place, std::string_view format, std::span<const Orvo::String> arguments) {
    std::size_t next = 0;
    for (place = put(place, plainPart(format)); !format.empty();
         place = put(place, plainPart(format))) {
        if (format.starts_with("%s")) {
            place =
                put(place, next < arguments.size() ? arguments[next].view() : std::string_view());
            ++next;
            format.remove_prefix(2);
        } else {
            place = put(place, "%");
            format.remove_prefix(format.starts_with("%%") ? 2 : 1);
        }
    }
    return place;
}

// The line of a message, in memory that may hold an earlier one.
std::string_view lineIn(std::vector<char>& memory, const LogDescriptor& descriptor,
                        std::span<const Orvo::String> arguments) {
    const std::string_view name = descriptor.name;
    const std::string_view format = descriptor.format;
    const std::size_t longest =
        name.size() + nameEnd.size() + longestText(format, arguments) + lineEnd.size();
    if (memory.size() < longest) {
        memory.clear(); // nothing of it is needed
        memory.resize(longest);
    }
    char* place = put(memory.data(), name);
    place = put(place, nameEnd);
    place = putFormatted(place, format, arguments);
    place = put(place, lineEnd);
    return {memory.data(), place};
}

void deliver(const State& state, const LogMessage& message) {
    if (state.sink) {
        state.sink(message);
    }
}

void report(const LogDescriptor& descriptor, std::uint64_t count) {
    std::string line = descriptor.name;
    line += nameEnd;
    line += std::to_string(count) + " messages suppressed";
    line += lineEnd;
    deliver(state(), {descriptor, {}, line});
}

void report(const RateLimiter::Report& due) {
    report(*due.descriptor, due.suppressed);
}

void timerIs() {
    State& mine = state();
    if (!mine.timer.expired()) {
        return;
    }
    const auto manager = ActivityFacility::activityManagerIfAny();
    const auto due = mine.limiter.nextDue();
    if (!manager || !due) {
        return;
    }
    const auto delay = std::max(*due - mine.clock(), std::chrono::steady_clock::duration(0));
    auto alive = std::make_shared<bool>(true);
    mine.timer = alive;
    manager->afterIs(Orvo::Duration(delay), [held = std::move(alive)]() mutable {
        held.reset();
        LogFacility::reportSuppressed();
        timerIs();
    });
}

const TypeRegistration registration(LogFacility::typeData());

} // namespace

void LogFacility::sinkIs(LogSink sink) {
    state().sink = std::move(sink);
}

void LogFacility::defaultLimitIs(const LogLimit& limit) {
    state().defaultLimit = limit;
}

LogLimit LogFacility::defaultLimit() {
    return state().defaultLimit;
}

void LogFacility::clockIs(LogClock clock) {
    state().clock = clock ? std::move(clock) : LogClock(lastTick);
    state().limiter = RateLimiter();
}

std::uint64_t LogFacility::messages() {
    return state().messages;
}

std::uint64_t LogFacility::suppressed() {
    return state().suppressed;
}

const TypeData& LogFacility::typeData() {
    static const TypeData& type =
        (*new TypeData("Zell::LogFacility"))
            .attributeIs({"messages",
                          [](const void* /*object*/) -> Orvo::Value {
                              return static_cast<std::int64_t>(messages());
                          },
                          nullptr})
            .attributeIs({"suppressed",
                          [](const void* /*object*/) -> Orvo::Value {
                              return static_cast<std::int64_t>(suppressed());
                          },
                          nullptr});
    return type;
}

void LogFacility::reportSuppressed(bool all) {
    State& mine = state();
    for (const RateLimiter::Report& due : mine.limiter.takeDue(mine.clock(), all)) {
        report(due);
    }
}

bool LogFacility::okToLog(const LogHandle& handle, unsigned hash) {
    State& mine = state();
    const bool allowed =
        mine.limiter.allowed(hash, ruleOf(handle, mine.defaultLimit), mine.clock());
    if (const auto evicted = mine.limiter.takeEvicted()) {
        report(*evicted);
    }
    if (!allowed) {
        ++mine.suppressed;
        timerIs();
        return false;
    }
    if (const std::uint64_t count = mine.limiter.takeSuppressed(hash); count != 0) {
        report(handle.descriptor(), count);
    }
    return true;
}

void LogFacility::log(const LogDescriptor& descriptor, std::span<const Orvo::String> arguments) {
    State& mine = state();
    ++mine.messages;
    // Taken out meanwhile, since a sink may raise a message itself.
    std::vector<char> memory = std::exchange(mine.line, {});
    deliver(mine, {descriptor, arguments, lineIn(memory, descriptor, arguments)});
    if (memory.capacity() <= mostKept) {
        mine.line = std::move(memory);
    }
}

std::string_view LogMessage::withoutEnd() const noexcept {
    return {line.data(), line.size() - (line.ends_with(lineEnd) ? lineEnd.size() : 0)};
}

std::string_view LogMessage::text() const noexcept {
    std::string_view text = withoutEnd();
    text.remove_prefix(
        std::min(text.size(), std::string_view(descriptor.name).size() + nameEnd.size()));
    return text;
}

std::string formatted(const char* format, std::span<const Orvo::String> arguments) {
    std::string text(longestText(format, arguments), '\0');
    text.resize(
        static_cast<std::size_t>(putFormatted(text.data(), format, arguments) - text.data()));
    return text;
}

} // namespace Zell
