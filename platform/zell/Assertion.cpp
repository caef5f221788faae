// SPDX-License-Identifier: Apache-2.0
// The last line of a process whose invariant broke.
#include "platform/zell/Assertion.h"

#include "platform/duolog/Duolog.h"
#include "platform/zell/StderrLines.h"
#include "platform/zell/TraceHandle.h"

#include <cstdlib>
#include <string>

namespace Zell {

void assertionFailed(const char* source, int line, const char* operation,
                     const char* expression) noexcept {
    const std::string text = std::string(source) + ":" + std::to_string(line) + ": " + operation +
                             ": assertion failed: " + expression;
    Duolog::write(TraceHandle::traceHandleIs(source), 0, {operation, operation}, text);
    const std::string whole = text + "\n";
    StderrLines::putNow(whole);
    std::abort();
}

} // namespace Zell
