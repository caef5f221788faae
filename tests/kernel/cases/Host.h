// SPDX-License-Identifier: Apache-2.0
// The two ways in which the cases run the state machines: the agent, and the library in the test.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Vestrel::Tests {

/// How long a case waits for what must come; an emulated machine on a busy host is slow.
inline constexpr std::chrono::seconds deadline{20};

/// One run of the state machine. May be started again after its stop.
class Host {
public:
    Host() = default;
    virtual ~Host() = default;
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Returns when the start-up is done. The lines of an earlier run are forgotten.
    virtual void start() = 0;
    /// An end in order; one that is not is a failure of the case. Nothing when it is not running.
    virtual void stop() = 0;
    /// Gives it a moment to do what it has to do.
    virtual void step() = 0;

    /// The trace lines of this run as "LEVEL TEXT", such as "5 getKey: 17, .ima".
    virtual const std::vector<std::string>& traces() = 0;
    /// The log messages of this run as "NAME: TEXT".
    virtual const std::vector<std::string>& messages() = 0;
};

} // namespace Vestrel::Tests
