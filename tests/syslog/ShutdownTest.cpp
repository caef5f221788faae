// SPDX-License-Identifier: Apache-2.0
// Watches the end of the syslog state machine from inside.
#include "platform/zell/FileDescriptor.h"
#include "platform/zell/TraceHandle.h"
#include "tests/platform/Actors.h"
#include "tests/syslog/SyslogTest.h"

#include <cerrno>
#include <ostream>

namespace Vestrel::Tests {

namespace {

// Whether a readable descriptor leads to the handler, and whether it is still held.
struct Moment {
    bool isHandled;
    bool isHeld;

    bool operator==(const Moment&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Moment& moment) {
    return out << "handled " << moment.isHandled << ", held " << moment.isHeld;
}

// Traces a failure each time that the event loop looks what it has to watch: after each change of a
// node's flags and of the subscriptions to a descriptor.
class Bell {
public:
    static constexpr const char* name = "bell";

    Bell() {
        actor_->hasNotificationActiveIs(true);
        descriptor_->publisher().subscriberIs(actor_->listener, false);
        descriptor_->notificationInterfaceIs(Zell::NotificationInterface::readiness);
        descriptor_->notifyOnReadableIs(true);
        descriptor_->descriptorIs(1 << 20); // nothing is open there
    }

private:
    Orvo::Ptr<Actor> actor_ = Orvo::makeNode<Actor>();
    Orvo::Ptr<Zell::FileDescriptor> descriptor_ = Orvo::makeNode<Zell::FileDescriptor>(name);
};

class SyslogShutdown : public SyslogTest {
protected:
    SyslogShutdown() { start(); }

    // The moments after the socket's file was unlinked, each only where it differs from the one
    // before.
    std::vector<Moment> momentsAfterUnlinking() {
        const IntegritySyslogSm& going = *sm;
        const Orvo::Ptr<Zell::FileDescriptor> descriptor = sm->fileDescriptor();
        const Bell bell;
        clear();
        std::vector<Moment> moments;
        Zell::traceSinkIs([&](const Zell::TraceLine& line) {
            if (!line.text.ends_with(Bell::name) || calls.callsOf({"unlink"}).empty()) {
                return;
            }
            const Moment moment{isHandled(*descriptor), going.fileDescriptor() != nullptr};
            if (moments.empty() || !(moments.back() == moment)) {
                moments.push_back(moment);
            }
        });
        stop();
        Zell::traceSinkIs(nullptr);
        return moments;
    }

private:
    // The handler reads first of all, and finds nothing.
    bool isHandled(Zell::FileDescriptor& descriptor) {
        const std::size_t before = calls.callsOf({"read"}).size();
        calls.feedReadError(descriptor.descriptor(), EAGAIN);
        descriptor.publisher().publish(Zell::FileDescriptor::readableNotificationField,
                                       std::int64_t{0}, std::int64_t{1});
        return calls.callsOf({"read"}).size() != before;
    }
};

TEST_F(SyslogShutdown, LetsReactorsRunOnceTheSocketIsGoneAndThenDropsTheDescriptor) {
    EXPECT_EQ(momentsAfterUnlinking(), (std::vector<Moment>{{true, true}, {false, false}}));
}

} // namespace

} // namespace Vestrel::Tests
