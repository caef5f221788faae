// SPDX-License-Identifier: Apache-2.0
// Life of the host process.
#include "agent/Agent.h"

#include "agent/Directories.h"
#include "agent/Options.h"
#include "platform/zell/LogFacility.h"

#include <systemd/sd-daemon.h>

#include <sys/stat.h>

#include <csignal>
#include <ctime>

namespace Vestrel {

namespace {

// Whoever may write to the kernel message socket may forge messages.
constexpr mode_t ownerMayReadAndWrite = 0177;

// The service manager orders the reload by the monotonic clock.
void notifyReloading() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long long microseconds = now.tv_sec * 1000000LL + now.tv_nsec / 1000;
    sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%lld", microseconds);
}

} // namespace

Agent::Agent()
    : loop_(Zell::ActivityFacility::activityManager()),
      keyrings_(Orvo::makeNode<IntegrityKeyringColl>()) {
    for (const int signal : {SIGTERM, SIGINT}) {
        loop_->signalIs(signal, [this] { loop_->exitIs(ended); });
    }
    loop_->signalIs(SIGHUP, [this] { reload(); });
}

int Agent::run() {
    umask(ownerMayReadAndWrite);
    keyringSmCreate();
    syslogSm_ = integritySyslogSmFactory();
    loop_->watchdogIs(true);
    sd_notify(0, "READY=1");
    const int status = loop_->run();
    sd_notify(0, "STOPPING=1");
    syslogSm_ = nullptr;
    keyringSm_ = nullptr;
    Zell::LogFacility::reportSuppressed(true);
    return status;
}

void Agent::keyringSmCreate() {
    certificateDirectoriesIs();
    keyringSm_ = integrityKeyringSmFactory(keyrings_);
}

void Agent::reload() {
    notifyReloading();
    keyringSm_ = nullptr; // before the new one fills the collection that they share
    keyringSmCreate();
    sd_notify(0, "READY=1");
}

} // namespace Vestrel
