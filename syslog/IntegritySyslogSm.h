// SPDX-License-Identifier: Apache-2.0
// The state machine that turns the kernel's IMA appraisal records into log messages.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Duration.h"
#include "platform/orvo/Node.h"
#include "platform/orvo/Ptr.h"
#include "platform/orvo/String.h"
#include "platform/pelbin/Pelbin.h"
#include "platform/zell/DescriptorCollection.h"
#include "platform/zell/HashMap2018.h"

#include <cstddef>

namespace Zell {
class TraceHandle;
}

namespace Vestrel {

// Owns a Unix datagram socket on which a log daemon forwards kernel lines, one a datagram.
// Everything happens on the thread that runs the event loop. Failed system calls are traced at
// level 1; without a socket the state machine lives on and receives nothing.
class VESTREL_EXPORT IntegritySyslogSm final : public Orvo::Node,
                                               public Pelbin::Tracked<IntegritySyslogSm> {
public:
    static constexpr const char* pelbinName = "Vestrel::IntegritySyslogSm";

    // Where kernel lines arrive. The mode of the socket file is decided by the host's umask.
    static constexpr const char* socketPath = "/var/run/IMAKernelMessages";

    // How much of a datagram is read; the rest of a longer one is cut off by the socket.
    static constexpr std::size_t bufferReadSize = 8192;

    // Creates the state machine, socket included, and turns its notifications on.
    static Orvo::Ptr<IntegritySyslogSm> IntegritySyslogSmIs();

    IntegritySyslogSm();

    // Closes the socket and removes its file.
    ~IntegritySyslogSm() override;

    const Zell::TypeData& typeData() const override;
    void zellDoZombieReactors(bool value) override;

    // Attributes.

    struct HN_Syslogs {
        static constexpr const char* pelbinName = "Vestrel::IntegritySyslogSm::syslogs";
    };

    using SyslogMap = Zell::HashMap2018<HN_Syslogs, Orvo::String, Orvo::Duration>;

    // Kept for whoever inspects or fills it; nothing in this library does.
    const SyslogMap& syslogs() const noexcept { return syslogs_; }

    void syslogsIs(const Orvo::String& name, const Orvo::Duration& duration) {
        syslogs_.valueIs(name, duration);
    }

    Orvo::Duration syslogsDel(const Orvo::String& name) { return syslogs_.del(name); }

    void syslogsDelAll() { syslogs_.delAll(); }

    // 0 means no socket. Keeps its value when the socket is closed at the end.
    int socketFd() const noexcept { return socketFd_; }

    // The descriptor that wakes handleLog(), or null.
    const Orvo::Ptr<Zell::FileDescriptor>& fileDescriptor() const noexcept {
        return fileDescriptor_;
    }

    // Makes a descriptor of that name in place of the one before, and runs handleLog() once.
    Orvo::Ptr<Zell::FileDescriptor> fileDescriptorIs(const Orvo::String& name);
    // Detaches and returns the descriptor, or null when there is none.
    Orvo::Ptr<Zell::FileDescriptor> fileDescriptorDel();

    // Life.

    void handleInitialized();
    void handleDelete();

    // Kernel lines.

    // Reads every datagram that is waiting.
    void handleLog();
    // Raises "VESTREL_INTEGRITY" when the line is the record of a failed appraisal.
    void processKernelMsg(const Orvo::String& message);

    using on_fileDescriptor =
        Zell::DescriptorReactor<IntegritySyslogSm, &IntegritySyslogSm::handleLog>;

    // The switch of the state machine's traces.
    static Zell::TraceHandle& traceHandle();

private:
    SyslogMap syslogs_;
    int socketFd_ = 0;
    Orvo::Ptr<Zell::FileDescriptor> fileDescriptor_;
    on_fileDescriptor fileDescriptorReactor_;
};

// Creates the syslog state machine. A socket that cannot be had is traced, not reported here.
// Throws std::bad_alloc.
VESTREL_EXPORT Orvo::Ptr<IntegritySyslogSm> integritySyslogSmFactory();

} // namespace Vestrel
