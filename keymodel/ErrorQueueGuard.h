// SPDX-License-Identifier: Apache-2.0
// Leaves OpenSSL's queue of errors to the host as it was.
#pragma once

#include <openssl/err.h>

namespace Vestrel {

// Takes back what OpenSSL queues as errors while it lives.
class ErrorQueueGuard {
public:
    ErrorQueueGuard() { ERR_set_mark(); }

    ~ErrorQueueGuard() { ERR_pop_to_mark(); }

    ErrorQueueGuard(const ErrorQueueGuard&) = delete;
    ErrorQueueGuard& operator=(const ErrorQueueGuard&) = delete;
};

} // namespace Vestrel
