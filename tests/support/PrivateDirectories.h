// SPDX-License-Identifier: Apache-2.0
// Private /etc and /run, so that the fixed paths of the system can be used as they are and several
// programs may run side by side.
#pragma once

namespace Vestrel::Tests {

/// For the rest of the process, which has to be single-threaded. Ends it where the system refuses.
void privateDirectoriesEnter();

} // namespace Vestrel::Tests
