// SPDX-License-Identifier: Apache-2.0
// A life of both state machines in which every trace is written at least once.
#pragma once

#include "platform/brisklog/Brisklog.h"
#include "syslog/IntegritySyslogSm.h"
#include "tests/keyring/CertificateDirectories.h"

#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Tests {

class Scenario : public CertificateDirectories {
protected:
    Scenario();
    ~Scenario() override;

    void everything();

    static constexpr const char* appraisalLine =
        "kernel: [    2.647055][   T10] audit: type=1800 audit(1795226825.572:11): pid=115 uid=0 "
        "auid=4294967295 ses=4294967295 op=appraise_data cause=missing-hash comm=\"tool\" "
        "name=\"/usr/bin/tool\" dev=\"rootfs\" ino=392 res=0 errno=0";

private:
    void startUpWithFailures();
    void keysComeAndGo();
    void filesComeAndGo();
    void hostileNotifications();
    void hostileDirectoryEvents();
    void shutdownWithFailures();
    void kernelLines();

    void directoryEvent(std::uint32_t mask, std::uint32_t cookie, const std::string& name);
    void notification(unsigned type, unsigned subtype, std::uint32_t aux, unsigned length = 16);

    int inotifyFd() const { return sm->watcherInfos(".ima").inotifyFd; }
};

} // namespace Vestrel::Tests
