// SPDX-License-Identifier: Apache-2.0
// Creation of the keyring state machine and its plain attributes.
#include "keyring/IntegrityKeyringSm.h"

#include "platform/zell/Errors.h"
#include "platform/zell/TraceHandle.h"

#include <utility>

namespace Vestrel {

Orvo::Ptr<IntegrityKeyringSm>
integrityKeyringSmFactory(const Orvo::Ptr<IntegrityKeyringColl>& integrityKeyringColl) {
    return IntegrityKeyringSm::IntegrityKeyringSmIs(integrityKeyringColl);
}

Orvo::Ptr<IntegrityKeyringSm>
IntegrityKeyringSm::IntegrityKeyringSmIs(const Orvo::Ptr<IntegrityKeyringColl>& coll) {
    if (!coll) {
        throw Zell::NullArgumentError("Vestrel::IntegrityKeyringSm needs a collection");
    }
    auto stateMachine = Orvo::makeNode<IntegrityKeyringSm>(coll);
    stateMachine->hasNotificationActiveIs(true);
    return stateMachine;
}

IntegrityKeyringSm::IntegrityKeyringSm(const Orvo::Ptr<IntegrityKeyringColl>& coll)
    : integrityKeyringColl_(coll), inotifyDescriptors_(*this), keyringWatchFileDescriptors_(*this) {
    try {
        handleInitialized();
    } catch (...) {
        // No destructor runs for a half-built object: what is open is closed here.
        keyringWatchFileDescriptorsDelAll();
        inotifyDescriptorsDelAll();
        for (auto info = watcherInfos_.iterator(); info; ++info) {
            giveUp(*info);
        }
        watcherInfosDelAll();
        throw;
    }
}

Zell::TraceHandle& IntegrityKeyringSm::traceHandle() {
    static Zell::TraceHandle& handle = Zell::TraceHandle::traceHandleIs("IntegrityKeyringSm");
    return handle;
}

void IntegrityKeyringSm::zellDoZombieReactors(bool value) {
    Node::zellDoZombieReactors(value);
}

Orvo::Ptr<IntegrityKeyLoader> IntegrityKeyringSm::keyLoaderIs() {
    if (!keyLoader_) {
        keyLoader_ = Orvo::makeNode<IntegrityKeyLoader>();
    }
    return keyLoader_;
}

Orvo::Ptr<IntegrityKeyLoader> IntegrityKeyringSm::keyLoaderDel() {
    return std::exchange(keyLoader_, nullptr);
}

} // namespace Vestrel
