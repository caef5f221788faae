// SPDX-License-Identifier: Apache-2.0
// A named kernel descriptor that the event loop watches for reading.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Node.h"
#include "platform/orvo/Ptr.h"
#include "platform/orvo/Publisher.h"
#include "platform/orvo/String.h"
#include "platform/pelbin/Pelbin.h"

#include <cstdint>

struct sd_event_source;

namespace Zell {

class ActivityManager;
class TraceHandle;

enum class NotificationInterface : int {
    none = 0,      // never watched
    readiness = 1, // watched by the activity manager's epoll
};

// Watched while it has a number, notifyOnReadable, the readiness interface and a subscriber whose
// reactors may run, and the activity manager uses epoll. Each time data arrives, the readable
// notification is published, and the subscriber's reactor is expected to read until EAGAIN. Data
// that it leaves unread is reported again a second later, so that a descriptor whose read keeps
// failing cannot keep the loop busy.
//
// Never closes its number: whoever opened it does, after having switched notifications off.
class VESTREL_EXPORT FileDescriptor final : public Orvo::Node,
                                            public Pelbin::Tracked<FileDescriptor> {
public:
    static constexpr const char* pelbinName = "Zell::FileDescriptor";

    // The attributes as subscribers see them.
    enum Field : Orvo::FieldId {
        nonBlockingField = 0x100,
        notificationInterfaceField = 0x101,
        notifyOnReadableField = 0x102,
        readableNotificationField = 0x103, // counts the reports of readability
        descriptorField = 0x104,
    };

    static constexpr int noDescriptor = -1;

    explicit FileDescriptor(const Orvo::String& name);
    ~FileDescriptor() override;

    const Orvo::String& name() const noexcept { return name_; }

    // When true, O_NONBLOCK is set on the number as soon as both are known. A failure is traced.
    bool nonBlocking() const noexcept { return nonBlocking_; }

    void nonBlockingIs(bool value);

    NotificationInterface notificationInterface() const noexcept { return interface_; }

    void notificationInterfaceIs(NotificationInterface value);

    bool notifyOnReadable() const noexcept { return notifyOnReadable_; }

    void notifyOnReadableIs(bool value);

    // noDescriptor until set.
    int descriptor() const noexcept { return descriptor_; }

    void descriptorIs(int value);

    // How often readability was reported.
    std::int64_t readableNotification() const noexcept { return readableNotification_; }

    const TypeData& typeData() const override;

    // Starts or ends the watch according to what is set now. Called by the framework whenever
    // something that counts has changed.
    void reevaluate();

private:
    friend class ActivityManager;

    static TraceHandle& traceHandle();

    bool shouldBeWatched() const noexcept;
    void watchIs();
    void watchDel() noexcept;
    void nonBlockingApply();
    void readableReport();
    void reportAgainIs();
    void reportAgainDel() noexcept;
    bool unreadDataLeft() const noexcept;

    Orvo::String name_;
    bool nonBlocking_ = false;
    bool notifyOnReadable_ = false;
    NotificationInterface interface_ = NotificationInterface::none;
    int descriptor_ = noDescriptor;
    std::int64_t readableNotification_ = 0;
    Orvo::Ptr<ActivityManager> manager_; // while watched
    sd_event_source* source_ = nullptr;  // while watched
    sd_event_source* again_ = nullptr;   // while unread data waits to be reported again
};

// Builds a descriptor that is ready to be watched: named, non-blocking, on the readiness interface,
// notifying when readable, holding the number. Throws std::bad_alloc.
VESTREL_EXPORT Orvo::Ptr<FileDescriptor> readableDescriptor(const Orvo::String& name,
                                                            int descriptor);

} // namespace Zell
