// SPDX-License-Identifier: Apache-2.0
// Raising one log message.
#include "platform/zell/LogHandle.h"

#include "platform/zell/Fnv.h"
#include "platform/zell/LogFacility.h"

#include <algorithm>
#include <vector>

namespace Zell {

LogHandle::LogHandle(const LogDescriptor* descriptor, Orvo::Duration interval, double backoff,
                     unsigned burst, unsigned rateLimitArgsMask) noexcept
    : descriptor_(descriptor), interval_(interval), backoff_(backoff), burst_(burst),
      rateLimitArgsMask_(rateLimitArgsMask), idHash_(fnv1a(descriptor->name)) {}

bool LogHandle::okToLog(unsigned hash) {
    return LogFacility::okToLog(*this, hash);
}

void LogHandle::log(const LogString& arguments) {
    std::vector<Orvo::String> texts;
    texts.reserve(arguments.argumentCount);
    for (unsigned i = 0; i < arguments.argumentCount; ++i) {
        texts.push_back(arguments.str(i));
    }
    LogFacility::log(*descriptor_, texts, formatted(descriptor_->format, texts));
}

} // namespace Zell
