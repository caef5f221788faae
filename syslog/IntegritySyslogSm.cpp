// SPDX-License-Identifier: Apache-2.0
// Creation of the syslog state machine, its attributes and its type table.
#include "syslog/IntegritySyslogSm.h"

#include "platform/zell/Errors.h"
#include "platform/zell/TraceHandle.h"
#include "platform/zell/TypeData.h"

#include <unistd.h>

#include <utility>

namespace Vestrel {

namespace {

const IntegritySyslogSm& self(const void* object) {
    return *static_cast<const IntegritySyslogSm*>(object);
}

void forEachSyslog(const void* object, const Zell::CollectionData::Visitor& visitor) {
    for (auto syslog = self(object).syslogs().iterator(); syslog; ++syslog) {
        visitor(syslog.key(), std::int64_t{syslog->nanoseconds().count()});
    }
}

Orvo::Value socketFd(const void* object) {
    return std::int64_t{self(object).socketFd()};
}

Orvo::Value fileDescriptor(const void* object) {
    return Orvo::Ptr<Orvo::Node>(self(object).fileDescriptor());
}

Orvo::Value construct(std::span<const Orvo::Value> arguments) {
    if (!arguments.empty()) {
        throw Zell::AttributeError("Vestrel::IntegritySyslogSm is constructed from nothing");
    }
    return Orvo::Ptr<Orvo::Node>(IntegritySyslogSm::IntegritySyslogSmIs());
}

const Zell::TypeData& stateMachineType() {
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Vestrel::IntegritySyslogSm"))
            .collectionIs({"syslogs", &forEachSyslog})
            .attributeIs({"socketFd", &socketFd, nullptr})
            .attributeIs({"fileDescriptor", &fileDescriptor, nullptr})
            .operationsAre({"hasNotificationActiveIs", "syslogsIs", "syslogsDel", "syslogsDelAll",
                            "fileDescriptorIs", "fileDescriptorDel", "handleInitialized",
                            "handleLog", "handleDelete", "processKernelMsg"})
            .constructIs(&construct);
    return type;
}

const Zell::TypeRegistration registration(stateMachineType());

} // namespace

Orvo::Ptr<IntegritySyslogSm> integritySyslogSmFactory() {
    return IntegritySyslogSm::IntegritySyslogSmIs();
}

Orvo::Ptr<IntegritySyslogSm> IntegritySyslogSm::IntegritySyslogSmIs() {
    auto stateMachine = Orvo::makeNode<IntegritySyslogSm>();
    stateMachine->hasNotificationActiveIs(true);
    return stateMachine;
}

IntegritySyslogSm::IntegritySyslogSm() : fileDescriptorReactor_(*this) {
    try {
        handleInitialized();
    } catch (...) {
        if (socketFd_ != 0) { // the file stands for a state machine that lives
            unlink(socketPath);
        }
        throw;
    }
}

const Zell::TypeData& IntegritySyslogSm::typeData() const {
    return stateMachineType();
}

void IntegritySyslogSm::zellDoZombieReactors(bool value) {
    Node::zellDoZombieReactors(value);
}

Zell::TraceHandle& IntegritySyslogSm::traceHandle() {
    static Zell::TraceHandle& handle = Zell::TraceHandle::traceHandleIs("IntegritySyslogSm");
    return handle;
}

Orvo::Ptr<Zell::FileDescriptor> IntegritySyslogSm::fileDescriptorIs(const Orvo::String& name) {
    auto made = Orvo::makeNode<Zell::FileDescriptor>(name);
    const Orvo::Ptr<Zell::FileDescriptor> before = std::exchange(fileDescriptor_, made);
    fileDescriptorReactor_.on_selfPublisher(this, before, made);
    fileDescriptorReactor_.on_self0(this, false, name, before, made);
    return made;
}

Orvo::Ptr<Zell::FileDescriptor> IntegritySyslogSm::fileDescriptorDel() {
    Orvo::Ptr<Zell::FileDescriptor> removed = std::exchange(fileDescriptor_, nullptr);
    if (removed) {
        fileDescriptorReactor_.on_selfPublisher(this, removed, nullptr);
        fileDescriptorReactor_.on_self0(this, false, removed->name(), removed, nullptr);
    }
    return removed;
}

} // namespace Vestrel
