// SPDX-License-Identifier: Apache-2.0
// The certificate directories that the agent provides for.
#pragma once

namespace Vestrel {

// Creates the certificate directory of every managed keyring that has none, with mode 0755. What
// cannot be created is reported on stderr and left: the state machine goes on without it.
void certificateDirectoriesIs();

// The same for the directory of the status socket.
void statusDirectoryIs(const char* path);

} // namespace Vestrel
