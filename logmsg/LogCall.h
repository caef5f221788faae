// SPDX-License-Identifier: Apache-2.0
// The log call: raises a message unless its rate limit refuses it.
#pragma once

#include "platform/orvo/String.h"
#include "platform/zell/LogHandle.h"
#include "platform/zell/LogString.h"

#include <cstddef>
#include <utility>

namespace Vestrel {

namespace Impl {

// Stores the arguments `from` up to but not including `to`; the others are not converted.
template <class... Args, std::size_t... Index>
[[gnu::always_inline]] inline void
argumentsAre(Zell::LogString& logString, unsigned from, unsigned to,
             std::index_sequence<Index...> /*indexes*/, const Args&... args) {
    [[maybe_unused]] const auto store = [&](unsigned index, const auto& argument) {
        if (index >= from && index < to) {
            logString.strIs(index, Orvo::String(argument));
        }
    };
    (store(Index, args), ...);
}

} // namespace Impl

// The first rateLimitArgsMask() arguments identify the message to the rate limit. A refused message
// converts none of the arguments behind them.
template <class... Args>
void log(Zell::LogHandle& handle, const Args&... args) {
    constexpr unsigned count = sizeof...(Args);
    constexpr std::make_index_sequence<count> indexes;
    static_assert(count <= Zell::LogString::maxArguments);
    const unsigned limited = handle.rateLimitArgsMask();

    Zell::LogString logString;
    logString.argumentCount = count;
    Impl::argumentsAre(logString, 0, limited, indexes, args...);

    const unsigned hash = Zell::Impl::logArgsHash(logString, limited);
    if (!handle.okToLog(hash ^ handle.idHash())) {
        return;
    }
    Impl::argumentsAre(logString, limited, count, indexes, args...);
    logString.hash = hash;
    handle.log(logString);
}

} // namespace Vestrel
