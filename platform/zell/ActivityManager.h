// SPDX-License-Identifier: Apache-2.0
// The event loop: descriptors, signals, timers and the service watchdog on one thread.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Duration.h"
#include "platform/orvo/Node.h"
#include "platform/orvo/Ptr.h"
#include "platform/pelbin/Pelbin.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <list>
#include <memory>

struct sd_event;
struct sd_event_source;

namespace Zell {

class FileDescriptor;
class TraceHandle;

// The loop of the process. It exists while somebody holds it: every watched descriptor does, and so
// does a host that runs it. Its own descriptors are closed when the last of them lets go.
//
// A host that has a loop of its own polls pollFd() for reading and calls dispatch() when it is
// readable. It also calls dispatch() before its first poll, after an exception that left
// dispatch(), and after it set a timer from outside a handler. Otherwise the host calls run().
//
// Operations that need the kernel throw std::system_error when it refuses.
class VESTREL_EXPORT ActivityManager final : public Orvo::Node,
                                             public Pelbin::Tracked<ActivityManager> {
public:
    static constexpr const char* pelbinName = "Zell::ActivityManager";

    using Handler = std::function<void()>;

    ActivityManager();
    ~ActivityManager() override;

    // Readable whenever dispatch() has something to do since it last returned. Belongs to the
    // manager.
    int pollFd() const noexcept;

    // Marks what is ready, runs the handlers and returns without waiting. An exception that a
    // handler throws leaves here.
    void dispatch();

    // Dispatches until exitIs() was called; returns its status. Exceptions leave as from
    // dispatch().
    int run();
    void exitIs(int status) noexcept;

    // Blocks the signal for the thread and runs the handler each time it arrives.
    void signalIs(int signal, Handler handler);

    // Runs the handler once when the delay has passed; forgotten when the manager goes before.
    void afterIs(Orvo::Duration delay, Handler handler);

    // Runs the handler once, outside of any other handler, at the next dispatch.
    void soonIs(Handler handler) { afterIs(Orvo::Duration(), std::move(handler)); }

    // Feeds the service manager's watchdog from the loop if the service manager asks for it;
    // returns whether it does.
    bool watchdogIs(bool value);

private:
    friend class FileDescriptor;
    friend class IoWatch;
    struct Callback;

    static TraceHandle& traceHandle();
    static int onReadable(sd_event_source* source, int descriptor, std::uint32_t events,
                          void* fileDescriptor) noexcept;
    static int onSignal(sd_event_source* source, const void* info, void* callback) noexcept;
    static int onTime(sd_event_source* source, std::uint64_t now, void* callback) noexcept;

    static int onAgain(sd_event_source* source, std::uint64_t now, void* fileDescriptor) noexcept;

    sd_event_source* readableSourceIs(int descriptor, FileDescriptor& owner);
    sd_event_source* againSourceIs(FileDescriptor& owner);
    void callbackMade(int result, const char* call);
    void guarded(const Handler& handler) noexcept;
    bool dispatchOne(std::uint64_t timeout);

    sd_event* event_ = nullptr;
    std::list<Callback> callbacks_;
    std::exception_ptr thrown_;
};

// Process-wide settings of the event loop.
class VESTREL_EXPORT ActivityManagerConfig {
public:
    // Whether descriptors on the readiness interface are watched at all; false until a state
    // machine switches it on.
    bool useEpoll() const noexcept { return useEpoll_; }

    void useEpollIs(bool value);

private:
    bool useEpoll_ = false;
};

class VESTREL_EXPORT ActivityFacility {
public:
    static ActivityManagerConfig& activityManagerConfig() noexcept;

    // The loop of the process, made when there is none.
    static Orvo::Ptr<ActivityManager> activityManager();

    // The loop if there is one, or null.
    static Orvo::Ptr<ActivityManager> activityManagerIfAny() noexcept;

    // Has every descriptor look again at whether it is to be watched. Throws std::bad_alloc where a
    // watch begins and memory is out.
    static void reactorsReevaluate();
};

} // namespace Zell
