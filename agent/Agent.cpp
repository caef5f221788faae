// SPDX-License-Identifier: Apache-2.0
// Life of the host process.
#include "agent/Agent.h"

#include "agent/Directories.h"
#include "agent/Handover.h"
#include "agent/Sinks.h"
#include "logmsg/AgentMessages.h"
#include "logmsg/LogCall.h"
#include "platform/zell/LogFacility.h"

#include <systemd/sd-daemon.h>

#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <system_error>

namespace Vestrel {

namespace {

// Whoever may write to the kernel message socket may forge messages.
constexpr mode_t ownerMayReadAndWrite = 0177;

Zell::LogHandle driftMessage(&agentDescriptor(AgentMessageId::drift), Orvo::Duration(), 1.0, 0, 0);

// The service manager orders the reload by the monotonic clock.
void notifyReloading() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long long microseconds = now.tv_sec * 1000000LL + now.tv_nsec / 1000;
    sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%lld", microseconds);
}

} // namespace

Agent::Agent(const AgentOptions& options)
    : options_(options), loop_(Zell::ActivityFacility::activityManager()), loadFailures_(loop_),
      keyrings_(Orvo::makeNode<IntegrityKeyringColl>()),
      requests_({[this]() -> IntegrityKeyringSm& { return *keyringSm_; },
                 [this]() -> IntegritySyslogSm& { return *syslogSm_; },
                 [this]() -> const DriftRecord& { return drift_->record(); },
                 [this] { return resync(); }}) {
    sinksAre(options_, [this](const Zell::LogMessage& message) { loadFailures_.seen(message); });
    for (const int signal : {SIGTERM, SIGINT}) {
        loop_->signalIs(signal, [this] { loop_->exitIs(ended); });
    }
    loop_->signalIs(SIGHUP, [this] { reload(); });
}

Agent::~Agent() {
    sinksAre(options_); // nobody observes any more
}

int Agent::run() {
    umask(ownerMayReadAndWrite);
    keyringSmCreate();
    syslogSm_ = integritySyslogSmFactory();
    drift_ = std::make_unique<DriftWatch>(
        loop_,
        DriftWatch::Host{[this]() -> IntegrityKeyringSm& { return *keyringSm_; },
                         [this](const Differences& differences) { rebuild(differences); }},
        DriftWatch::Times{.interval = std::chrono::seconds(options_.driftInterval)});
    statusServerCreate();
    loop_->watchdogIs(true);
    sd_notify(0, "READY=1");
    const int status = loop_->run();
    sd_notify(0, "STOPPING=1");
    statusServer_ = nullptr;
    drift_ = nullptr;
    syslogSm_ = nullptr;
    keyringSm_ = nullptr;
    Zell::LogFacility::reportSuppressed(true);
    return status;
}

void Agent::keyringSmCreate() {
    certificateDirectoriesIs();
    keyringSm_ = integrityKeyringSmFactory(keyrings_);
    temporaryFilesForget(*keyrings_);
}

// The agent's work does not depend on being watched.
void Agent::statusServerCreate() {
    statusDirectoryIs(statusDirectory);
    try {
        statusServer_ = std::make_unique<StatusServer>(
            loop_, statusSocket,
            [this](std::string_view request) { return requests_.answer(request); },
            Requests::tooLong(StatusServer::maxLine));
    } catch (const std::system_error& failure) {
        std::fprintf(stderr, "vestrel-agent: no status socket: %s\n", failure.what());
    }
}

void Agent::reload() {
    notifyReloading();
    resync();
    sd_notify(0, "READY=1");
}

Differences Agent::resync() {
    Differences differed = drift_->lookTwice();
    rebuild(differed);
    return differed;
}

void Agent::rebuild(const Differences& differences) {
    if (!differences.empty()) {
        log(driftMessage, summary(differences));
    }
    drift_->lostEventsMakeUp();
    const Handover handover(*keyringSm_);
    keyringSm_ = nullptr; // before the new one fills the collection that they share
    keyringSmCreate();
    handover.takenUpBy(*keyringSm_);
    drift_->rebuilt();
}

} // namespace Vestrel
