// SPDX-License-Identifier: Apache-2.0
// Named switches of the text trace.
#pragma once

#include "platform/Export.h"

#include <functional>
#include <string>
#include <string_view>

namespace Zell {

// Levels: 1 failures ... 5 progress; 0 is always on. A statement whose level is above the handle's
// is skipped altogether.
class VESTREL_EXPORT TraceHandle {
public:
    // The handle of that name, created at the first call with the level of traceLevelIs(). Lives as
    // long as the process.
    static TraceHandle& traceHandleIs(const char* name);

    TraceHandle(const TraceHandle&) = delete;
    TraceHandle& operator=(const TraceHandle&) = delete;

    const std::string& name() const noexcept { return name_; }

    int level() const noexcept { return level_; }

    void levelIs(int level) noexcept { level_ = level; }

    bool enabled(int level) const noexcept { return level <= level_; }

private:
    TraceHandle(const char* name, int level) : name_(name), level_(level) {}

    std::string name_;
    int level_;
};

// Sets the level of every handle, present and future. The default is 1.
VESTREL_EXPORT void traceLevelIs(int level);

struct TraceLine {
    std::string_view handle;
    int level;
    std::string_view text; // the operation's short name, ": " and the values; no line end
};

using TraceSink = std::function<void(const TraceLine& line)>;

// Where text lines go; none (the default) drops them. The views of a line are valid during the
// call. A sink that sets another one is called to its end first.
VESTREL_EXPORT void traceSinkIs(TraceSink sink);

// Hands a line to the sink.
VESTREL_EXPORT void traceLineIs(const TraceLine& line);

} // namespace Zell
