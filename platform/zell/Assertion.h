// SPDX-License-Identifier: Apache-2.0
// Fatal assertions: a broken invariant ends the process with one line that says which.
#pragma once

#include "platform/Export.h"

namespace Zell {

// Writes "SOURCE:LINE: OPERATION: assertion failed: EXPRESSION" to the trace and to stderr, then
// calls abort().
[[noreturn]] VESTREL_EXPORT void assertionFailed(const char* source, int line,
                                                 const char* operation,
                                                 const char* expression) noexcept;

} // namespace Zell

// Checked in every build. `source` names the class that asserts, `text` is what the line says.
#define ZELL_ASSERT_TEXT(source, condition, text)                                                  \
    ((condition) ? void() : Zell::assertionFailed((source), __LINE__, __func__, (text)))

#define ZELL_ASSERT(source, condition) ZELL_ASSERT_TEXT(source, condition, #condition)
