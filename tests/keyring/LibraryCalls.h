// SPDX-License-Identifier: Apache-2.0
// Calls of the libraries below the state machine that the tests look at or let fail.
#pragma once

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

// While one lives, reading the entries of a directory fails with this errno.
class UnreadableDirectories {
public:
    explicit UnreadableDirectories(int error);
    ~UnreadableDirectories();
    UnreadableDirectories(const UnreadableDirectories&) = delete;
    UnreadableDirectories& operator=(const UnreadableDirectories&) = delete;
};

} // namespace Vestrel::Tests
