// SPDX-License-Identifier: Apache-2.0
// The way a test model ends the process when it is used in a way that no correct program would.
#pragma once

#include <string_view>

namespace Vestrel::Tests {

/// Writes "WHO: WHAT" to stderr and aborts: a broken contract is not a result to be returned.
[[noreturn]] void misuse(std::string_view who, std::string_view what);

} // namespace Vestrel::Tests
