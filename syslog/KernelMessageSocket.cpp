// SPDX-License-Identifier: Apache-2.0
// The socket on which kernel lines arrive: opened, drained, closed.
#include "platform/duolog/Duolog.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/OwnedFd.h"
#include "syslog/IntegritySyslogSm.h"
#include "syslog/KernelMessageCounters.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>

namespace Vestrel {

namespace {

constexpr const char* descriptorName = "IntegrityKernelSyslog";
constexpr std::size_t longestPath = 107;

sockaddr_un socketAddress() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, IntegritySyslogSm::socketPath, longestPath);
    return address;
}

static_assert(sizeof(sockaddr_un) == 110);
static_assert(sizeof(sockaddr_un::sun_path) == longestPath + 1);

} // namespace

void IntegritySyslogSm::handleInitialized() {
    DUOLOG(5, "");
    Zell::ActivityFacility::activityManagerConfig().useEpollIs(true);
    Zell::OwnedFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0));
    if (!socket) {
        DUOLOG_FAILED("socket");
        return;
    }
    const sockaddr_un address = socketAddress();
    unlink(socketPath); // a stale file of an earlier run
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1) {
        DUOLOG_FAILED("bind");
        return;
    }
    socketFd_ = socket.get();
    DUOLOG(5, "Socket opened ", socketFd_, " path ", socketPath);
    const Orvo::Ptr<Zell::FileDescriptor> descriptor = fileDescriptorIs(descriptorName);
    descriptor->nonBlockingIs(true);
    descriptor->notificationInterfaceIs(Zell::NotificationInterface::readiness);
    descriptor->notifyOnReadableIs(true);
    descriptor->descriptorIs(socket.release());
}

void IntegritySyslogSm::handleLog() {
    DUOLOG(5, "");
    if (socketFd_ == 0) {
        return;
    }
    std::array<char, bufferReadSize + 1> buffer; // NOLINT: filled by read()
    for (;;) {
        const ssize_t got = read(socketFd_, buffer.data(), bufferReadSize);
        if (got == -1 && errno == EAGAIN) {
            return;
        }
        if (got == -1) {
            DUOLOG_FAILED("read");
            ++KernelMessageCounters::counters().failures;
            return;
        }
        ++KernelMessageCounters::counters().datagrams;
        buffer[static_cast<std::size_t>(got)] = '\0';
        processKernelMsg(Orvo::String(buffer.data()));
    }
}

void IntegritySyslogSm::handleDelete() {
    DUOLOG(5, "");
    if (socketFd_ != 0) {
        close(socketFd_);
    }
    unlink(socketPath);
}

IntegritySyslogSm::~IntegritySyslogSm() {
    hasNotificationActiveIs(false);
    handleDelete();
    IntegritySyslogSm::zellDoZombieReactors(true);
    fileDescriptorDel();
}

} // namespace Vestrel
