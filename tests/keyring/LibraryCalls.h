// SPDX-License-Identifier: Apache-2.0
// Calls of the libraries below the state machine that the tests look at or let fail.
#pragma once

#include <cstddef>

namespace Vestrel::Tests {

// While one lives, what the event loop tells the kernel of its watches stands among the system
// calls as "epoll_ctl ADD 7", "epoll_ctl MOD 7" and "epoll_ctl DEL 7".
class RecordedWatches {
public:
    RecordedWatches();
    ~RecordedWatches();
    RecordedWatches(const RecordedWatches&) = delete;
    RecordedWatches& operator=(const RecordedWatches&) = delete;
};

// While one lives, reading the entries of a directory fails with this errno: from the n-th entry on
// that is asked for, in whichever directory that is, "." and ".." and the end being entries too.
class UnreadableDirectories {
public:
    explicit UnreadableDirectories(int error, std::size_t nth = 1);
    ~UnreadableDirectories();
    UnreadableDirectories(const UnreadableDirectories&) = delete;
    UnreadableDirectories& operator=(const UnreadableDirectories&) = delete;
};

} // namespace Vestrel::Tests
