// SPDX-License-Identifier: Apache-2.0
// The log call: raises a message unless its rate limit refuses it.
#pragma once

#include "platform/orvo/String.h"
#include "platform/zell/LogHandle.h"
#include "platform/zell/LogString.h"

namespace Vestrel {

namespace Impl {

// Stores the arguments `from` up to but not including `to`; the others are not converted.
template <class... Args>
void argumentsAre(Zell::LogString& logString, unsigned from, unsigned to, const Args&... args) {
    unsigned index = 0;
    [[maybe_unused]] const auto store = [&](const auto& argument) {
        if (index >= from && index < to) {
            logString.strIs(index, Orvo::String(argument));
        }
        ++index;
    };
    (store(args), ...);
}

} // namespace Impl

// The first rateLimitArgsMask() arguments identify the message to the rate limit. A refused message
// converts none of the arguments behind them.
template <class... Args>
void log(Zell::LogHandle& handle, const Args&... args) {
    constexpr unsigned count = sizeof...(Args);
    static_assert(count <= Zell::LogString::maxArguments);
    const unsigned limited = handle.rateLimitArgsMask();

    Zell::LogString logString;
    logString.argumentCount = count;
    Impl::argumentsAre(logString, 0, limited, args...);

    const unsigned hash = Zell::Impl::logArgsHash(logString, limited);
    if (!handle.okToLog(hash ^ handle.idHash())) {
        return;
    }
    Impl::argumentsAre(logString, limited, count, args...);
    logString.hash = hash;
    handle.log(logString);
}

} // namespace Vestrel
