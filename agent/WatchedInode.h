// SPDX-License-Identifier: Apache-2.0
// Which directory a watch is on.
#pragma once

namespace Vestrel {

// The kernel's own word on what the inotify descriptor watches; 0 when it is nothing any more.
unsigned long watchedInode(int inotifyFd);

} // namespace Vestrel
