// SPDX-License-Identifier: Apache-2.0
// Limits and delivery of log messages.
#include "platform/zell/LogFacility.h"

#include "platform/zell/ActivityManager.h"
#include "platform/zell/LogHandle.h"
#include "platform/zell/LogSinks.h"
#include "platform/zell/RateLimiter.h"
#include "platform/zell/TypeData.h"

#include <memory>
#include <string_view>
#include <utility>

namespace Zell {

namespace {

struct State {
    RateLimiter limiter;
    LogLimit defaultLimit;
    LogClock clock = std::chrono::steady_clock::now;
    LogSink sink = journalOrSyslogSink();
    std::uint64_t messages = 0;
    std::uint64_t suppressed = 0;
    std::weak_ptr<bool> timer; // alive while the event loop will report by itself
};

// Never destroyed: messages may be raised while static objects are.
State& state() {
    static State* const mine = new State;
    return *mine;
}

BucketRule ruleOf(const LogHandle& handle) {
    LogLimit limit = state().defaultLimit;
    if (!handle.interval().isZero()) {
        limit.interval = handle.interval();
    }
    if (handle.burst() != 0) {
        limit.burst = handle.burst();
    }
    return {&handle.descriptor(), limit, handle.backoff()};
}

void deliver(const LogMessage& message) {
    if (state().sink) {
        state().sink(message);
    }
}

void report(const LogDescriptor& descriptor, std::uint64_t count) {
    const std::string text = std::to_string(count) + " messages suppressed";
    deliver({descriptor, {}, text});
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
    state().clock = clock ? std::move(clock) : LogClock(std::chrono::steady_clock::now);
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
    const bool allowed = mine.limiter.allowed(hash, ruleOf(handle), mine.clock());
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

void LogFacility::log(const LogDescriptor& descriptor, std::span<const Orvo::String> arguments,
                      const std::string& text) {
    ++state().messages;
    deliver({descriptor, arguments, text});
}

std::string formatted(const char* format, std::span<const Orvo::String> arguments) {
    std::string_view rest(format);
    std::size_t size = rest.size();
    for (const Orvo::String& argument : arguments) {
        size += argument.size();
    }
    std::string text;
    text.reserve(size);
    std::size_t next = 0;
    for (std::size_t percent = rest.find('%'); percent != std::string_view::npos;
         percent = rest.find('%')) {
        text += rest.substr(0, percent);
        rest.remove_prefix(percent);
        if (rest.starts_with("%s")) {
            text += next < arguments.size() ? arguments[next].view() : std::string_view();
            ++next;
            rest.remove_prefix(2);
        } else {
            text += '%';
            rest.remove_prefix(rest.starts_with("%%") ? 2 : 1);
        }
    }
    text += rest;
    return text;
}

} // namespace Zell
