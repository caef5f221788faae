// SPDX-License-Identifier: Apache-2.0
// The host process of the state machines.
#pragma once

#include "agent/DriftWatch.h"
#include "agent/LoadFailures.h"
#include "agent/Options.h"
#include "agent/Requests.h"
#include "agent/StatusServer.h"
#include "keymodel/IntegrityKeyringColl.h"
#include "keyring/IntegrityKeyringSm.h"
#include "platform/orvo/Ptr.h"
#include "platform/zell/ActivityManager.h"
#include "survey/AgentSocket.h"
#include "syslog/IntegritySyslogSm.h"

#include <memory>

namespace Vestrel {

// Runs the state machines on the event loop until SIGTERM or SIGINT. SIGHUP drops and re-creates
// the keyring state machine, which rebuilds everything from kernel and disk; so does drift between
// record, kernel and disk, and a client of the status socket that asks for it.
class Agent {
public:
    static constexpr const char* statusDirectory = agentSocketDirectory;
    static constexpr const char* statusSocket = agentSocket;

    // Sets the sinks and blocks the signals; nothing else happens before run(). Throws
    // std::system_error.
    explicit Agent(const AgentOptions& options);
    ~Agent();
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    // Starts up, tells the service manager, serves, and ends in order. Returns the exit status.
    // Exceptions of the start-up leave.
    int run();

private:
    void keyringSmCreate();
    void statusServerCreate();
    void reload();
    void rebuild(const Differences& differences);
    Differences resync();

    const AgentOptions options_;
    Orvo::Ptr<Zell::ActivityManager> loop_;
    LoadFailures loadFailures_;
    Orvo::Ptr<IntegrityKeyringColl> keyrings_;
    Orvo::Ptr<IntegrityKeyringSm> keyringSm_;
    Orvo::Ptr<IntegritySyslogSm> syslogSm_;
    std::unique_ptr<DriftWatch> drift_;
    Requests requests_;
    std::unique_ptr<StatusServer> statusServer_;
};

} // namespace Vestrel
