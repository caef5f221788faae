// SPDX-License-Identifier: Apache-2.0
// Raising one log message.
#include "platform/zell/LogHandle.h"

#include "platform/zell/Fnv.h"
#include "platform/zell/LogFacility.h"

namespace Zell {

LogHandle::LogHandle(const LogDescriptor* descriptor, Orvo::Duration interval, double backoff,
                     unsigned burst, unsigned rateLimitArgsMask) noexcept
    : descriptor_(descriptor), interval_(interval), backoff_(backoff), burst_(burst),
      rateLimitArgsMask_(rateLimitArgsMask), idHash_(fnv1a(descriptor->name)) {}

bool LogHandle::okToLog(unsigned hash) {
    return LogFacility::okToLog(*this, hash);
}

void LogHandle::log(const LogString& arguments) {
    LogFacility::log(*descriptor_, arguments.texts());
}

} // namespace Zell
