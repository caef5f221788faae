// SPDX-License-Identifier: Apache-2.0
// The methods that the status socket offers.
#pragma once

#include "agent/AgentInfo.h"
#include "agent/DriftWatch.h"
#include "agent/Reflected.h"
#include "keyring/IntegrityKeyringSm.h"
#include "syslog/IntegritySyslogSm.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace Vestrel {

// A request is {"method": NAME, "parameters": {...}}, where parameters may be left out; an answer
// {"parameters": {...}} or {"error": NAME, "parameters": {...}}.
//
// | method   | parameters           | answer |
// |---|---|---|
// | Status   |                      | agent, both state machines, counters, drift |
// | Keyrings | keyring (a name)     | keys, files and their descriptions of that one or of all |
// | Resync   |                      | what differed before everything was rebuilt |
// | Trace    | after (a sequence)   | events of the trace ring behind it, the last sequence, more |
//
// | error            | parameters | when |
// |---|---|---|
// | InvalidRequest   | reason     | not JSON, not an object, no method |
// | LineTooLong      | limit      | in bytes; the connection is closed |
// | MethodNotFound   | method     | |
// | InvalidParameter | parameter  | unknown, or not of its type |
// | ReplyTooLarge    | limit      | in bytes; ask for one keyring |
class Requests {
public:
    static constexpr std::size_t maxReply = std::size_t{4} * 1024 * 1024;

    struct Host {
        std::function<IntegrityKeyringSm&()> keyringSm;
        std::function<IntegritySyslogSm&()> syslogSm;
        std::function<const DriftRecord&()> drift;
        std::function<Differences()> resync; // rebuilds, and gives what differed before
    };

    explicit Requests(Host host);

    // One line for one line. Only what rebuilding throws leaves here.
    std::string answer(std::string_view request) const;

    // What a request that is longer than its limit is answered.
    static std::string tooLong(std::size_t limit);

private:
    Json perform(const Json& request) const;
    Json status() const;
    Json keyrings(const Json& parameters) const;
    Json resync() const;
    static Json trace(const Json& parameters);

    Host host_;
    const AgentInfo info_ = AgentInfo::ofThisProcess();
};

} // namespace Vestrel
