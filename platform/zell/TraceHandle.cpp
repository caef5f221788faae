// SPDX-License-Identifier: Apache-2.0
// The trace handles of the process and the sink of the text trace.
#include "platform/zell/TraceHandle.h"

#include "platform/zell/Sink.h"

#include <map>
#include <memory>
#include <utility>

namespace Zell {

namespace {

struct State {
    std::map<std::string, std::unique_ptr<TraceHandle>, std::less<>> handles;
    int level = 1;
    Sink<void(const TraceLine&)> sink;
};

// Never destroyed: traces may be written while static objects are.
State& state() {
    static State* const mine = new State;
    return *mine;
}

} // namespace

TraceHandle& TraceHandle::traceHandleIs(const char* name) {
    State& mine = state();
    auto found = mine.handles.find(name);
    if (found == mine.handles.end()) {
        found = mine.handles
                    .emplace(name, std::unique_ptr<TraceHandle>(new TraceHandle(name, mine.level)))
                    .first;
    }
    return *found->second;
}

void traceLevelIs(int level) {
    State& mine = state();
    mine.level = level;
    for (const auto& [name, handle] : mine.handles) {
        handle->levelIs(level);
    }
}

void traceSinkIs(TraceSink sink) {
    state().sink.functionIs(std::move(sink));
}

void traceLineIs(const TraceLine& line) {
    state().sink(line);
}

} // namespace Zell
