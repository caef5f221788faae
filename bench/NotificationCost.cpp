// SPDX-License-Identifier: Apache-2.0
// Changes of a watched keyring, as fast as the kernel tells of them.
#include "bench/Clock.h"
#include "bench/KeyringRoads.h"
#include "bench/Rings.h"
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/KeyringCounters.h"
#include "keyring/WatchNotification.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/OwnedFd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace Vestrel::Bench {

namespace {

constexpr unsigned pairsInQueue = 100; // 200 notifications, which a queue holds without a loss

void demand(bool success, const char* step) {
    if (!success) {
        std::fprintf(stderr, "%s: %s\n", step, std::strerror(errno));
        std::exit(1);
    }
}

// Reads and does nothing else.
class BareQueue {
public:
    explicit BareQueue(key_serial_t ring) {
        std::array<int, 2> ends{};
        demand(pipe2(ends.data(), notificationPipeFlag | O_NONBLOCK) == 0, "pipe2");
        readEnd_ = Zell::OwnedFd(ends[0]);
        writeEnd_ = Zell::OwnedFd(ends[1]);
        demand(ioctl(ends[1], setQueueSizeRequest, queueSlots) == 0, "IOC_WATCH_QUEUE_SET_SIZE");
        demand(keyctl_watch_key(ring, ends[1], 0) == 0, "keyctl_watch_key");
    }

    int pollFd() const { return readEnd_.get(); }

    void drain() {
        std::array<char, WatchNotification::size> buffer{};
        for (;;) {
            const ssize_t got = read(readEnd_.get(), buffer.data(), buffer.size());
            if (got <= 0) {
                return;
            }
            const bool isWhole = static_cast<std::size_t>(got) == buffer.size();
            ++(isWhole ? notifications_ : losses_);
        }
    }

    double notifications() const { return notifications_; }

    double losses() const { return losses_; }

private:
    Zell::OwnedFd readEnd_;
    Zell::OwnedFd writeEnd_;
    double notifications_ = 0;
    double losses_ = 0;
};

// The same by the state machine.
class StateMachine {
public:
    // Of the ring that stands for ".ima".
    explicit StateMachine(key_serial_t) { loop_->dispatch(); }

    int pollFd() const { return loop_->pollFd(); }

    void drain() { loop_->dispatch(); }

    double notifications() const {
        return static_cast<double>(counters().notifications) - notificationsBefore_;
    }

    double losses() const {
        return static_cast<double>(counters().notificationsLost) - lossesBefore_;
    }

private:
    static const KeyringCounters& counters() { return KeyringCounters::of(".ima"); }

    double notificationsBefore_ = static_cast<double>(counters().notifications);
    double lossesBefore_ = static_cast<double>(counters().notificationsLost);
    Orvo::Ptr<Zell::ActivityManager> loop_ = Zell::ActivityFacility::activityManager();
    Orvo::Ptr<IntegrityKeyringSm> stateMachine_ =
        integrityKeyringSmFactory(Orvo::makeNode<IntegrityKeyringColl>());
};

// Somebody who changes a keyring: each change makes one notification.
class Changer {
public:
    explicit Changer(key_serial_t ring) : ring_(ring) { demand(key_ != -1, "add_key"); }

    // Two notifications each.
    void linksAndUnlinks(unsigned pairs) const {
        for (unsigned i = 0; i < pairs; ++i) {
            demand(keyctl_link(key_, ring_) == 0, "keyctl_link");
            demand(keyctl_unlink(key_, ring_) == 0, "keyctl_unlink");
        }
    }

    // The same in a process of its own.
    pid_t beginLinksAndUnlinks(unsigned pairs) const {
        const pid_t child = fork();
        demand(child != -1, "fork");
        if (child == 0) {
            linksAndUnlinks(pairs);
            _exit(0);
        }
        return child;
    }

private:
    key_serial_t ring_;
    key_serial_t key_ = add_key("user", "vestrel-bench-changes", "x", 1, KEY_SPEC_SESSION_KEYRING);
};

template <class Reader>
double drainCost(Reader& reader) {
    const double before = reader.notifications();
    const ProcessorClock clock;
    reader.drain();
    const double spent = clock.microseconds();
    if (reader.notifications() - before != 2 * pairsInQueue) {
        std::fprintf(stderr, "%g notifications instead of %u\n", reader.notifications() - before,
                     2 * pairsInQueue);
        std::exit(1);
    }
    return spent / (2 * pairsInQueue);
}

// Every notification goes to both queues, so both drain the very same ones in turn.
void measureDrains(Report& report, unsigned rounds) {
    const PlainRing ring;
    const Changer changer(ring.serial());
    BareQueue bare(ring.serial());
    StateMachine ours(ring.serial());
    std::vector<double> made;
    std::vector<double> readBarely;
    std::vector<double> handled;
    std::vector<double> ratios;
    for (unsigned round = 0; round < rounds; ++round) {
        const ProcessorClock clock;
        changer.linksAndUnlinks(pairsInQueue);
        made.push_back(clock.microseconds() / (2 * pairsInQueue));
        readBarely.push_back(drainCost(bare));
        handled.push_back(drainCost(ours));
        ratios.push_back(handled.back() / readBarely.back());
    }
    report.figure("notification: made by a link or unlink, two queues", spreadOf(made), "us");
    report.figure("notification: bare read", spreadOf(readBarely), "us");
    report.figure("notification: state machine", spreadOf(handled), "us");
    report.figure("notification: of bare read", spreadOf(ratios), "times");
}

template <class Reader>
void drainUntilEnd(Reader& reader, pid_t child) {
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        pollfd wait{reader.pollFd(), POLLIN, 0};
        poll(&wait, 1, 10); // the end of the other process is no event here
        reader.drain();
    }
    demand(WIFEXITED(status) && WEXITSTATUS(status) == 0, "changes of the keyring");
}

// Against somebody who never pauses. What does not fit into the queue is lost, but never unnoticed.
template <class Reader>
void measureFlood(Report& report, const std::string& name, unsigned pairs) {
    const PlainRing ring;
    const Changer changer(ring.serial());
    Reader reader(ring.serial());
    const WallClock wall;
    const ProcessorClock processor;
    drainUntilEnd(reader, changer.beginLinksAndUnlinks(pairs));
    const double seconds = wall.microseconds() / 1e6;
    const double spent = processor.microseconds();
    const double made = 2.0 * pairs;
    const double lost = made - reader.notifications();
    changer.linksAndUnlinks(1); // a report of a loss waits for what comes behind it
    reader.drain();
    const std::string flood = "flood of " + std::to_string(2 * pairs) + ", " + name + ": ";
    report.figure(flood + "made", made / seconds, "a second");
    report.figure(flood + "read", reader.notifications() / seconds, "a second");
    report.figure(flood + "processor time", spent / reader.notifications(), "us each");
    report.figure(flood + "lost", 100 * lost / made, "%");
    report.figure(flood + "reports of a loss", reader.losses(), "");
    if (lost > 0 && reader.losses() == 0) {
        std::fprintf(stderr, "%g notifications were lost unnoticed\n", lost);
        std::exit(1);
    }
}

bool kernelHasNotifications() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), notificationPipeFlag) == -1) {
        return false;
    }
    const Zell::OwnedFd readEnd(ends[0]);
    const Zell::OwnedFd writeEnd(ends[1]);
    return true;
}

} // namespace

void measureNotifications(Report& report, Certificates& certificates, unsigned rounds,
                          unsigned pairs) {
    report.title("key notifications, processor time");
    if (!kernelHasNotifications()) {
        std::puts("this kernel has none");
        return;
    }
    certificates.write(imaDirectory, 0);
    measureDrains(report, rounds);
    measureFlood<BareQueue>(report, "bare read", pairs);
    measureFlood<StateMachine>(report, "state machine", pairs);
}

} // namespace Vestrel::Bench
