// SPDX-License-Identifier: Apache-2.0
// The trace statement: one event for the text trace and for the ring.
#pragma once

#include "platform/brisklog/Brisklog.h"
#include "platform/zell/Errno.h"
#include "platform/zell/TraceHelper.h"

#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace Duolog {

// The text of one value as it is streamed.
template <class Value>
std::string textOf(const Value& value) {
    std::ostringstream out;
    out.exceptions(std::ios_base::badbit); // memory that is out leaves as what it is
    out << value;
    return std::move(out).str();
}

// The function in whose name a statement traces.
struct Operation {
    const char* name;      // opens the text line
    const char* signature; // opens the ring's format
};

// Writes one event to both sinks.
template <class... Values>
void write(const Zell::TraceHandle& handle, int level, const Operation& operation,
           const Values&... values) {
    std::vector<std::string> texts{textOf(values)...};
    {
        Zell::TraceHelper line(handle, level, operation.name);
        for (const std::string& text : texts) {
            line << text;
        }
    }
    Brisklog::eventIs(level, handle.name(), operation.signature, std::move(texts));
}

} // namespace Duolog

// The function that it stands in.
#define DUOLOG_OPERATION (Duolog::Operation{__func__, __PRETTY_FUNCTION__})

// Traces the values in the name of an operation, where the scope has a `traceHandle()`. The values
// are not evaluated unless the level is enabled.
#if defined(VESTREL_WITHOUT_TRACES) // a bench measures what traces cost that are off
#define DUOLOG_IN(operation, level, ...)                                                           \
    do {                                                                                           \
    } while (false)
#else
#define DUOLOG_IN(operation, level, ...)                                                           \
    do {                                                                                           \
        if (const Zell::TraceHandle& duologHandle = traceHandle(); duologHandle.enabled(level)) {  \
            Duolog::write(duologHandle, (level), (operation), __VA_ARGS__);                        \
        }                                                                                          \
    } while (false)
#endif

// Traces the values in the name of the function that it stands in.
#define DUOLOG(level, ...) DUOLOG_IN(DUOLOG_OPERATION, level, __VA_ARGS__)

// Traces at level 1 that a call failed: its name, ": ", the text of errno as it stands on entry,
// and what may follow. errno is left as it was.
#define DUOLOG_FAILED_IN(operation, call, ...)                                                     \
    do {                                                                                           \
        const Zell::Errno duologCause;                                                             \
        DUOLOG_IN(operation, 1, call ": ", duologCause __VA_OPT__(, ) __VA_ARGS__);                \
        errno = duologCause.value();                                                               \
    } while (false)

#define DUOLOG_FAILED(call, ...) DUOLOG_FAILED_IN(DUOLOG_OPERATION, call __VA_OPT__(, ) __VA_ARGS__)
