// SPDX-License-Identifier: Apache-2.0
// What reflection knows of the keyring state machine.
#include "keyring/IntegrityKeyringSm.h"
#include "platform/zell/Errors.h"
#include "platform/zell/TypeData.h"

namespace Vestrel {

namespace {

using Visitor = Zell::CollectionData::Visitor;

const IntegrityKeyringSm& self(const void* object) {
    return *static_cast<const IntegrityKeyringSm*>(object);
}

void forEachWatcherInfo(const void* object, const Visitor& visitor) {
    for (auto info = self(object).watcherInfos().iterator(); info; ++info) {
        visitor(info.key(), Zell::recordValue(KeyringWatcherInfo::typeData(), *info));
    }
}

template <class Map>
void forEachDescriptor(const Map& descriptors, const Visitor& visitor) {
    for (auto descriptor = descriptors.iterator(); descriptor; ++descriptor) {
        visitor(descriptor.key(), Orvo::Ptr<Orvo::Node>(*descriptor));
    }
}

void forEachInotifyDescriptor(const void* object, const Visitor& visitor) {
    forEachDescriptor(self(object).inotifyDescriptors(), visitor);
}

void forEachKeyringWatchFileDescriptor(const void* object, const Visitor& visitor) {
    forEachDescriptor(self(object).keyringWatchFileDescriptors(), visitor);
}

Orvo::Value integrityKeyringColl(const void* object) {
    return Orvo::Ptr<Orvo::Node>(self(object).integrityKeyringColl());
}

Orvo::Value keyLoader(const void* object) {
    return Orvo::Ptr<Orvo::Node>(self(object).keyLoader());
}

Orvo::Value construct(std::span<const Orvo::Value> arguments) {
    const auto* const node =
        arguments.size() == 1 ? std::get_if<Orvo::Ptr<Orvo::Node>>(arguments.data()) : nullptr;
    auto* const coll = node == nullptr ? nullptr : dynamic_cast<IntegrityKeyringColl*>(node->get());
    if (coll == nullptr) {
        throw Zell::AttributeError(
            "Vestrel::IntegrityKeyringSm is constructed from integrityKeyringColl");
    }
    return Orvo::Ptr<Orvo::Node>(
        IntegrityKeyringSm::IntegrityKeyringSmIs(Orvo::Ptr<IntegrityKeyringColl>(coll)));
}

const Zell::TypeData& stateMachineType() {
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Vestrel::IntegrityKeyringSm"))
            .attributeIs({"integrityKeyringColl", &integrityKeyringColl, nullptr})
            .attributeIs({"keyLoader", &keyLoader, nullptr})
            .collectionIs({"watcherInfos", &forEachWatcherInfo})
            .collectionIs({"inotifyDescriptors", &forEachInotifyDescriptor})
            .collectionIs({"keyringWatchFileDescriptors", &forEachKeyringWatchFileDescriptor})
            .operationsAre({"hasNotificationActiveIs",
                            "keyLoaderIs",
                            "keyLoaderDel",
                            "watcherInfosIs",
                            "watcherInfosDel",
                            "watcherInfosDelAll",
                            "inotifyDescriptorsIs",
                            "inotifyDescriptorsDel",
                            "inotifyDescriptorsDelAll",
                            "keyringWatchFileDescriptorsIs",
                            "keyringWatchFileDescriptorsDel",
                            "keyringWatchFileDescriptorsDelAll",
                            "handleInitialized",
                            "handleDelete",
                            "handleInotify",
                            "handleKeyringWatch",
                            "createWatcher",
                            "createInotifyWatch",
                            "createKeyringWatch",
                            "closeAllFd",
                            "getKey",
                            "clearKey",
                            "unlinkKey",
                            "removeDuplicates",
                            "loadFile",
                            "modifyFile",
                            "removeFile",
                            "unmapFileToDescription"})
            .constructIs(&construct);
    return type;
}

const Zell::TypeRegistration registration(stateMachineType());

} // namespace

const Zell::TypeData& IntegrityKeyringSm::typeData() const {
    return stateMachineType();
}

} // namespace Vestrel
