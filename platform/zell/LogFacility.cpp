// SPDX-License-Identifier: Apache-2.0
// Limits and delivery of log messages.
#include "platform/zell/LogFacility.h"

#include "platform/duolog/Duolog.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/LogHandle.h"
#include "platform/zell/LogLayout.h"
#include "platform/zell/LogSinks.h"
#include "platform/zell/RateLimiter.h"
#include "platform/zell/Sink.h"
#include "platform/zell/TraceHandle.h"
#include "platform/zell/TypeData.h"

#include <array>
#include <ctime>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace Zell {

namespace {

constexpr std::size_t mostOnStack = 1024; // in bytes, of a line

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
    Sink<void(const LogMessage&)> sink{journalOrSyslogSink()};
    std::uint64_t messages = 0;
    std::uint64_t suppressed = 0;
    LogLayout layout;          // of the last message; the next one mostly has the same
    std::weak_ptr<bool> timer; // alive while the event loop will report by itself
};

constinit State* theState = nullptr;

[[gnu::noinline]] void stateIs() {
    theState = new State;
}

// Made by whoever comes first, which may be a static object, and never destroyed, since messages
// may be raised while those are.
inline State& state() {
    if (theState == nullptr) {
        stateIs();
    }
    return *theState;
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

void report(const LogDescriptor& descriptor, std::uint64_t count) {
    std::string line = descriptor.name;
    line += LogLayout::nameEnd;
    line += std::to_string(count) + " messages suppressed";
    line += LogLayout::lineEnd;
    state().sink({descriptor, {}, line});
}

void report(const RateLimiter::Report& due) {
    report(*due.descriptor, due.suppressed);
}

TraceHandle& traceHandle() {
    static TraceHandle& handle = TraceHandle::traceHandleIs("LogFacility");
    return handle;
}

void timerIs();

void timerIsAfter(ActivityManager& manager, std::chrono::steady_clock::duration delay) {
    auto alive = std::make_shared<bool>(true);
    std::weak_ptr<bool> timer = alive;
    manager.afterIs(Orvo::Duration(delay), [held = std::move(alive)]() mutable {
        held.reset();
        LogFacility::reportSuppressed();
        timerIs();
    });
    state().timer = std::move(timer);
}

// Where no timer can be had, the counts are reported before the next message that is allowed.
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
    try {
        timerIsAfter(*manager, delay);
    } catch (const std::exception& failure) {
        DUOLOG(1, failure.what());
    }
}

const TypeRegistration registration(LogFacility::typeData());

} // namespace

void LogFacility::sinkIs(LogSink sink) {
    state().sink.functionIs(std::move(sink));
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
    if (!mine.layout.isOf(descriptor)) {
        mine.layout = LogLayout(descriptor);
    }
    std::array<char, mostOnStack> small; // NOLINT: filled by put()
    std::unique_ptr<char[]> large;       // NOLINT: of a size that only the message knows
    char* memory = small.data();
    if (const std::size_t longest = mine.layout.longest(arguments); longest > small.size()) {
        large = std::make_unique_for_overwrite<char[]>(longest); // NOLINT
        memory = large.get();
    }
    mine.sink({descriptor, arguments, {memory, mine.layout.put(memory, arguments)}});
}

std::string_view LogMessage::withoutEnd() const noexcept {
    return {line.data(),
            line.size() - (line.ends_with(LogLayout::lineEnd) ? LogLayout::lineEnd.size() : 0)};
}

std::string_view LogMessage::text() const noexcept {
    std::string_view text = withoutEnd();
    text.remove_prefix(std::min(text.size(), std::string_view(descriptor.name).size() +
                                                 LogLayout::nameEnd.size()));
    return text;
}

} // namespace Zell
