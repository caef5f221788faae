// SPDX-License-Identifier: Apache-2.0
// How the command ends, for scripts.
#pragma once

namespace Vestrel {

// When several hold, the first of them that is not `done`, in this order, is the status: failed,
// refused, unknown, late, unhealthy.
enum class ExitStatus : int {
    done = 0,
    failed = 1,     // a file or a system call; the reason is on standard error
    wrongUsage = 2, // of the command line; nothing was done
    refused = 3,    // the kernel does not take a certificate
    unknown = 4,    // whether the kernel takes a certificate, or what this user may not see
    late = 5,       // what was waited for did not happen in time
    unhealthy = 6,  // something is not as it should be; `vestrelctl status` says what
};

// The status of a whole of which one part ended with the one, another with the other.
ExitStatus worse(ExitStatus one, ExitStatus other);

} // namespace Vestrel
