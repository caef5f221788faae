// SPDX-License-Identifier: Apache-2.0
// Lets calls on the certificate directories and their files fail.
#pragma once

#include <cstddef>
#include <string_view>

namespace Vestrel::Tests {

// While one lives, the n-th call of `open`, `stat` or `fstat` from its making fails with this errno
// and does nothing. Only calls for paths below /etc/keys count, and fstat's for every descriptor;
// not libc's own (streams, directory walks). One at a time.
class FailingFileCall {
public:
    FailingFileCall(std::string_view call, std::size_t nth, int error);
    ~FailingFileCall();
    FailingFileCall(const FailingFileCall&) = delete;
    FailingFileCall& operator=(const FailingFileCall&) = delete;

    static bool hasStruck();
};

} // namespace Vestrel::Tests
