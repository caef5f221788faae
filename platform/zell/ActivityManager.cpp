// SPDX-License-Identifier: Apache-2.0
// The event loop on sd-event.
#include "platform/zell/ActivityManager.h"

#include "platform/duolog/Duolog.h"
#include "platform/zell/DescriptorRegistry.h"
#include "platform/zell/FileDescriptor.h"
#include "platform/zell/StderrLines.h"

#include <systemd/sd-event.h>

#include <sys/epoll.h>

#include <csignal>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace Zell {

namespace {

constexpr std::uint64_t withoutWaiting = 0;
constexpr std::uint64_t untilSomethingHappens = UINT64_MAX;

// How long unread data waits before it is reported again.
constexpr std::uint64_t reportAgainMicroseconds = 1000000;

constexpr std::uint64_t timerAccuracyMicroseconds = 1000;

ActivityManager* current = nullptr;

// sd-event returns negative errno values.
int checked(int result, const char* call) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), call);
    }
    return result;
}

} // namespace

// A handler together with the source that calls it.
struct ActivityManager::Callback {
    ActivityManager* manager;
    Handler handler;
    sd_event_source* source = nullptr;
    bool once;

    Callback(ActivityManager* owner, Handler function, bool onlyOnce)
        : manager(owner), handler(std::move(function)), once(onlyOnce) {}

    Callback(const Callback&) = delete;
    Callback& operator=(const Callback&) = delete;

    ~Callback() { sd_event_source_disable_unref(source); }
};

TraceHandle& ActivityManager::traceHandle() {
    static TraceHandle& handle = TraceHandle::traceHandleIs("ActivityManager");
    return handle;
}

ActivityManager::ActivityManager() {
    checked(sd_event_new(&event_), "sd_event_new");
}

ActivityManager::~ActivityManager() {
    if (current == this) {
        current = nullptr;
    }
    callbacks_.clear();
    sd_event_unref(event_);
}

int ActivityManager::pollFd() const noexcept {
    return sd_event_get_fd(event_);
}

bool ActivityManager::dispatchOne(std::uint64_t timeout) {
    const Orvo::Ptr<ActivityManager> self(this);
    const bool ran = checked(sd_event_run(event_, timeout), "sd_event_run") > 0;
    if (thrown_) {
        std::rethrow_exception(std::exchange(thrown_, nullptr));
    }
    return ran;
}

void ActivityManager::dispatch() {
    const Orvo::Ptr<ActivityManager> self(this);
    while (sd_event_get_state(event_) != SD_EVENT_FINISHED && dispatchOne(withoutWaiting)) {
    }
}

int ActivityManager::run() {
    const Orvo::Ptr<ActivityManager> self(this);
    while (sd_event_get_state(event_) != SD_EVENT_FINISHED) {
        dispatchOne(untilSomethingHappens);
    }
    int status = 0;
    checked(sd_event_get_exit_code(event_, &status), "sd_event_get_exit_code");
    return status;
}

void ActivityManager::exitIs(int status) noexcept {
    sd_event_exit(event_, status);
}

// No exception may pass through the C library; it is kept and leaves dispatchOne().
void ActivityManager::guarded(const Handler& handler) noexcept {
    const StderrLines::Together together;
    try {
        handler();
    } catch (...) {
        thrown_ = std::current_exception();
    }
}

// The last callback is none when the kernel has refused its source.
void ActivityManager::callbackMade(int result, const char* call) {
    if (result < 0) {
        callbacks_.pop_back();
    }
    checked(result, call);
}

void ActivityManager::signalIs(int signal, Handler handler) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    checked(-pthread_sigmask(SIG_BLOCK, &set, nullptr), "pthread_sigmask");
    Callback& callback = callbacks_.emplace_back(this, std::move(handler), false);
    const auto onArrival = [](sd_event_source* source, const signalfd_siginfo* info, void* data) {
        return onSignal(source, info, data);
    };
    callbackMade(sd_event_add_signal(event_, &callback.source, signal, onArrival, &callback),
                 "sd_event_add_signal");
}

int ActivityManager::onSignal(sd_event_source* /*source*/, const void* /*info*/,
                              void* callback) noexcept {
    const auto* const mine = static_cast<Callback*>(callback);
    mine->manager->guarded(mine->handler);
    return 0;
}

void ActivityManager::afterIs(Orvo::Duration delay, Handler handler) {
    const auto microseconds =
        std::chrono::duration_cast<std::chrono::microseconds>(delay.nanoseconds());
    Callback& callback = callbacks_.emplace_back(this, std::move(handler), true);
    callbackMade(sd_event_add_time_relative(event_, &callback.source, CLOCK_MONOTONIC,
                                            static_cast<std::uint64_t>(microseconds.count()),
                                            timerAccuracyMicroseconds, onTime, &callback),
                 "sd_event_add_time_relative");
}

int ActivityManager::onTime(sd_event_source* /*source*/, std::uint64_t /*now*/,
                            void* callback) noexcept {
    auto* const mine = static_cast<Callback*>(callback);
    ActivityManager& manager = *mine->manager;
    const Handler handler = std::move(mine->handler);
    manager.callbacks_.remove_if([mine](const Callback& each) { return &each == mine; });
    manager.guarded(handler);
    return 0;
}

bool ActivityManager::watchdogIs(bool value) {
    return checked(sd_event_set_watchdog(event_, value ? 1 : 0), "sd_event_set_watchdog") > 0;
}

sd_event_source* ActivityManager::readableSourceIs(int descriptor, FileDescriptor& owner) {
    sd_event_source* source = nullptr;
    // Edge-triggered: reactors read until EAGAIN, and a failing read must not be reported for ever.
    checked(sd_event_add_io(event_, &source, descriptor, EPOLLIN | EPOLLET, onReadable, &owner),
            "sd_event_add_io");
    return source;
}

int ActivityManager::onReadable(sd_event_source* /*source*/, int /*descriptor*/,
                                std::uint32_t /*events*/, void* fileDescriptor) noexcept {
    const Orvo::Ptr<FileDescriptor> descriptor(static_cast<FileDescriptor*>(fileDescriptor));
    const Orvo::Ptr<ActivityManager> manager = descriptor->manager_;
    manager->guarded([&] { descriptor->readableReport(); });
    manager->guarded([&] { descriptor->reportAgainIs(); }); // also when a reactor threw
    return 0;
}

sd_event_source* ActivityManager::againSourceIs(FileDescriptor& owner) {
    sd_event_source* source = nullptr;
    checked(sd_event_add_time_relative(event_, &source, CLOCK_MONOTONIC, reportAgainMicroseconds,
                                       timerAccuracyMicroseconds, onAgain, &owner),
            "sd_event_add_time_relative");
    return source;
}

// Ending and starting the watch anew has the kernel report what is still unread.
int ActivityManager::onAgain(sd_event_source* /*source*/, std::uint64_t /*now*/,
                             void* fileDescriptor) noexcept {
    auto* const descriptor = static_cast<FileDescriptor*>(fileDescriptor);
    const Orvo::Ptr<ActivityManager> manager = descriptor->manager_;
    descriptor->watchDel();
    manager->guarded([&] { descriptor->reevaluate(); });
    return 0;
}

void ActivityManagerConfig::useEpollIs(bool value) {
    if (std::exchange(useEpoll_, value) != value) {
        ActivityFacility::reactorsReevaluate();
    }
}

ActivityManagerConfig& ActivityFacility::activityManagerConfig() noexcept {
    static ActivityManagerConfig config;
    return config;
}

Orvo::Ptr<ActivityManager> ActivityFacility::activityManager() {
    if (current != nullptr) {
        return {current};
    }
    auto made = Orvo::makeNode<ActivityManager>();
    current = made.get();
    return made;
}

Orvo::Ptr<ActivityManager> ActivityFacility::activityManagerIfAny() noexcept {
    return {current};
}

void ActivityFacility::reactorsReevaluate() {
    // Held: the last watch that ends takes the loop along, with its handlers and what they hold.
    const Orvo::Ptr<ActivityManager> loop = activityManagerIfAny();
    const std::vector<FileDescriptor*>& all = DescriptorRegistry::all();
    // By index and without a copy: sinks may make and drop descriptors, and ending watches needs no
    // memory.
    for (std::size_t i = 0; i < all.size();) {
        const FileDescriptor* const descriptor = all[i];
        Orvo::Ptr<FileDescriptor>(all[i])->reevaluate();
        if (i < all.size() && all[i] == descriptor) {
            ++i;
        }
    }
}

} // namespace Zell
