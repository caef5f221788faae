// SPDX-License-Identifier: Apache-2.0
// Attributes of a readable descriptor and its place in the event loop.
#include "platform/zell/FileDescriptor.h"

#include "platform/duolog/Duolog.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/DescriptorRegistry.h"
#include "platform/zell/TypeData.h"

#include <systemd/sd-event.h>

#include <fcntl.h>
#include <poll.h>

#include <system_error>
#include <utility>

namespace Zell {

namespace {

const TypeData& fileDescriptorType() {
    static const TypeData& type =
        (*new TypeData("Zell::FileDescriptor"))
            .attributeIs({"name",
                          [](const void* object) -> Orvo::Value {
                              return static_cast<const FileDescriptor*>(object)->name();
                          },
                          nullptr})
            .attributeIs({"descriptor",
                          [](const void* object) -> Orvo::Value {
                              return std::int64_t{
                                  static_cast<const FileDescriptor*>(object)->descriptor()};
                          },
                          nullptr})
            .attributeIs(
                {"readableNotification",
                 [](const void* object) -> Orvo::Value {
                     return static_cast<const FileDescriptor*>(object)->readableNotification();
                 },
                 nullptr});
    return type;
}

const TypeRegistration registration(fileDescriptorType());

} // namespace

TraceHandle& FileDescriptor::traceHandle() {
    static TraceHandle& handle = TraceHandle::traceHandleIs("FileDescriptor");
    return handle;
}

FileDescriptor::FileDescriptor(const Orvo::String& name) : name_(name) {
    DescriptorRegistry::descriptorIs(*this);
}

FileDescriptor::~FileDescriptor() {
    DescriptorRegistry::descriptorDel(*this);
    watchDel();
}

const TypeData& FileDescriptor::typeData() const {
    return fileDescriptorType();
}

void FileDescriptor::nonBlockingIs(bool value) {
    const bool before = std::exchange(nonBlocking_, value);
    nonBlockingApply();
    publisher().publish(nonBlockingField, before, value);
}

void FileDescriptor::notificationInterfaceIs(NotificationInterface value) {
    const auto before = std::exchange(interface_, value);
    reevaluate();
    publisher().publish(notificationInterfaceField, static_cast<std::int64_t>(before),
                        static_cast<std::int64_t>(value));
}

void FileDescriptor::notifyOnReadableIs(bool value) {
    const bool before = std::exchange(notifyOnReadable_, value);
    reevaluate();
    publisher().publish(notifyOnReadableField, before, value);
}

void FileDescriptor::descriptorIs(int value) {
    watchDel(); // of the number before
    const int before = std::exchange(descriptor_, value);
    nonBlockingApply();
    reevaluate();
    publisher().publish(descriptorField, std::int64_t{before}, std::int64_t{value});
}

void FileDescriptor::nonBlockingApply() {
    if (!nonBlocking_ || descriptor_ == noDescriptor) {
        return;
    }
    const int flags = fcntl(descriptor_, F_GETFL);
    if (flags == -1 || fcntl(descriptor_, F_SETFL, flags | O_NONBLOCK) == -1) {
        DUOLOG_FAILED("fcntl", ", descriptor ", name_);
    }
}

bool FileDescriptor::shouldBeWatched() const noexcept {
    return descriptor_ != noDescriptor && notifyOnReadable_ &&
           interface_ == NotificationInterface::readiness && refCount() != 0 &&
           ActivityFacility::activityManagerConfig().useEpoll() && publisherIfAny() != nullptr &&
           publisherIfAny()->hasActiveSubscriber();
}

void FileDescriptor::reevaluate() {
    if (shouldBeWatched()) {
        watchIs();
    } else {
        watchDel();
    }
}

void FileDescriptor::watchIs() {
    if (source_ != nullptr) {
        return;
    }
    try {
        manager_ = ActivityFacility::activityManager();
        source_ = manager_->readableSourceIs(descriptor_, *this);
    } catch (const std::system_error& failure) {
        manager_ = nullptr;
        DUOLOG(1, failure.what(), ", descriptor ", name_);
    }
}

void FileDescriptor::watchDel() noexcept {
    reportAgainDel();
    source_ = sd_event_source_disable_unref(source_);
    manager_ = nullptr;
}

void FileDescriptor::readableReport() {
    reportAgainDel();
    const std::int64_t before = readableNotification_++;
    publisher().publish(readableNotificationField, before, readableNotification_);
}

void FileDescriptor::reportAgainIs() {
    if (unreadDataLeft()) {
        again_ = manager_->againSourceIs(*this);
    }
}

void FileDescriptor::reportAgainDel() noexcept {
    again_ = sd_event_source_disable_unref(again_);
}

bool FileDescriptor::unreadDataLeft() const noexcept {
    pollfd query{descriptor_, POLLIN, 0};
    return source_ != nullptr && poll(&query, 1, 0) > 0;
}

Orvo::Ptr<FileDescriptor> readableDescriptor(const Orvo::String& name, int descriptor) {
    auto readable = Orvo::makeNode<FileDescriptor>(name);
    readable->nonBlockingIs(true);
    readable->notificationInterfaceIs(NotificationInterface::readiness);
    readable->notifyOnReadableIs(true);
    readable->descriptorIs(descriptor);
    return readable;
}

} // namespace Zell
