// SPDX-License-Identifier: Apache-2.0
// The host process of the state machines.
#pragma once

#include "keymodel/IntegrityKeyringColl.h"
#include "keyring/IntegrityKeyringSm.h"
#include "platform/orvo/Ptr.h"
#include "platform/zell/ActivityManager.h"
#include "syslog/IntegritySyslogSm.h"

namespace Vestrel {

// Runs the state machines on the event loop until SIGTERM or SIGINT. SIGHUP drops and re-creates
// the keyring state machine, which rebuilds everything from kernel and disk.
class Agent {
public:
    // Blocks the signals; nothing else happens before run(). Throws std::system_error.
    Agent();

    // Starts up, tells the service manager, serves, and ends in order. Returns the exit status.
    // Exceptions of the start-up leave.
    int run();

private:
    void keyringSmCreate();
    void reload();

    Orvo::Ptr<Zell::ActivityManager> loop_;
    Orvo::Ptr<IntegrityKeyringColl> keyrings_;
    Orvo::Ptr<IntegrityKeyringSm> keyringSm_;
    Orvo::Ptr<IntegritySyslogSm> syslogSm_;
};

} // namespace Vestrel
