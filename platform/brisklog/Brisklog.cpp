// SPDX-License-Identifier: Apache-2.0
// The bounded ring of trace events.
#include "platform/brisklog/Brisklog.h"

#include "platform/zell/TypeData.h"
#include "platform/zell/UtcTime.h"

#include <deque>
#include <utility>

namespace Brisklog {

namespace {

struct Ring {
    Limits limits;
    std::deque<Event> events;
    std::size_t bytes = 0;
    std::uint64_t lastSequence = 0;
    std::uint64_t dropped = 0;

    static std::size_t weight(const Event& event) {
        std::size_t sum = event.format.size() + event.handle.size();
        for (const std::string& value : event.values) {
            sum += value.size();
        }
        return sum;
    }

    void shrink() {
        while (!events.empty() && (events.size() > limits.events || bytes > limits.bytes)) {
            bytes -= weight(events.front());
            events.pop_front();
            ++dropped;
        }
    }
};

// Never destroyed: traces may be written while static objects are.
Ring& ring() {
    static Ring* const mine = new Ring;
    return *mine;
}

std::string formatOf(const char* signature, std::size_t values) {
    std::string format = std::string(signature) + ": ";
    for (std::size_t i = 0; i < values; ++i) {
        format += "%s";
    }
    return format;
}

const Event& self(const void* event) {
    return *static_cast<const Event*>(event);
}

const Zell::TypeRegistration registration(Event::typeData());

} // namespace

const Zell::TypeData& Event::typeData() {
    using Orvo::Value;
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Brisklog::Event"))
            .attributeIs({"sequence",
                          [](const void* event) -> Value {
                              return static_cast<std::int64_t>(self(event).sequence);
                          },
                          nullptr})
            .attributeIs({"time",
                          [](const void* event) -> Value {
                              return Orvo::String(Zell::utcText(self(event).time));
                          },
                          nullptr})
            .attributeIs(Zell::keyAttribute<&Event::level>("level"))
            .attributeIs(
                {"handle",
                 [](const void* event) -> Value { return Orvo::String(self(event).handle); },
                 nullptr})
            .attributeIs(
                {"text",
                 [](const void* event) -> Value { return Orvo::String(self(event).text()); },
                 nullptr});
    return type;
}

std::string Event::text() const {
    std::string result = format.substr(0, format.size() - 2 * values.size());
    for (const std::string& value : values) {
        result += value;
    }
    return result;
}

void limitsAre(const Limits& limits) {
    ring().limits = limits;
    ring().shrink();
}

void eventIs(int level, const std::string& handle, const char* signature,
             std::vector<std::string> values) {
    Ring& mine = ring();
    for (std::string& value : values) {
        value.resize(std::min(value.size(), mine.limits.valueBytes));
    }
    const std::string format = formatOf(signature, values.size());
    mine.events.push_back({++mine.lastSequence, std::chrono::system_clock::now(), level, handle,
                           format, std::move(values)});
    mine.bytes += Ring::weight(mine.events.back());
    mine.shrink();
}

std::vector<Event> events() {
    return {ring().events.begin(), ring().events.end()};
}

std::uint64_t dropped() {
    return ring().dropped;
}

void eventsDelAll() {
    ring().events.clear();
    ring().bytes = 0;
}

} // namespace Brisklog
