// SPDX-License-Identifier: Apache-2.0
// Looks at what is meant to end its process.
#pragma once

#include <functional>
#include <string>

namespace Vestrel::Tests {

/// Does it in a copy of this process. What the copy wrote to stderr when it was aborted, else how
/// it ended. No event loop may stand: none goes on in a copy.
std::string lastWords(const std::function<void()>& act);

} // namespace Vestrel::Tests
