// SPDX-License-Identifier: Apache-2.0
// The rate-limited way to raise one log message.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Duration.h"
#include "platform/zell/LogDescriptor.h"
#include "platform/zell/LogString.h"

namespace Zell {

// Made at library load, used from the event thread. The descriptor must outlive the handle.
class VESTREL_EXPORT LogHandle {
public:
    // Up to `burst` messages at once, refilled evenly over `interval`, for each hash of the first
    // `rateLimitArgsMask` arguments. A zero interval and a zero burst mean the facility's own
    // limit. With a `backoff` above 1.0 the interval grows by that factor each time messages had to
    // be refused, and is back where it was after an interval without refusals.
    LogHandle(const LogDescriptor* descriptor, Orvo::Duration interval, double backoff,
              unsigned burst, unsigned rateLimitArgsMask) noexcept;

    const LogDescriptor& descriptor() const noexcept { return *descriptor_; }

    Orvo::Duration interval() const noexcept { return interval_; }

    double backoff() const noexcept { return backoff_; }

    unsigned burst() const noexcept { return burst_; }

    // How many of the first arguments take part in rate limiting.
    unsigned rateLimitArgsMask() const noexcept { return rateLimitArgsMask_; }

    // Tells the records apart: a hash of the record's name.
    unsigned idHash() const noexcept { return idHash_; }

    // Whether a message of that hash may be raised now. A refusal is counted, and the count is
    // reported before the next message that is allowed, or when the interval has passed.
    bool okToLog(unsigned hash);

    // Formats the message and hands it to the sink.
    void log(const LogString& arguments);

private:
    const LogDescriptor* descriptor_;
    Orvo::Duration interval_;
    double backoff_;
    unsigned burst_;
    unsigned rateLimitArgsMask_;
    unsigned idHash_;
};

} // namespace Zell
