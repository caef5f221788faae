// SPDX-License-Identifier: Apache-2.0
// The flags that this program's own calls of open had.
#pragma once

namespace Vestrel::Tests {

// Of the last call.
int lastOpenFlags();

} // namespace Vestrel::Tests
