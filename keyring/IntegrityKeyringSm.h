// SPDX-License-Identifier: Apache-2.0
// The state machine that keeps the kernel's integrity keyrings and the certificate directories in
// step.
#pragma once

#include "keymodel/IntegrityKeyLoader.h"
#include "keymodel/IntegrityKeyringColl.h"
#include "keyring/KeyringWatcherInfo.h"
#include "platform/Export.h"
#include "platform/orvo/Node.h"
#include "platform/orvo/Ptr.h"
#include "platform/orvo/String.h"
#include "platform/pelbin/Pelbin.h"
#include "platform/zell/DescriptorCollection.h"
#include "platform/zell/HashMap2018.h"

#include <keyutils.h>

#include <array>

namespace Zell {
class TraceHandle;
}

namespace Vestrel {

// Everything happens on the thread that runs the event loop: construction does the whole start-up,
// later the loop calls the two reactors, which call the handlers. Handlers read until EAGAIN and
// never block. Failed system calls are traced at level 1 and skipped; what leaves as an exception
// is only memory that is out and, at start-up, a certificate directory that cannot be read.
//
// The sources beside this header each hold one concern of the class.
class VESTREL_EXPORT IntegrityKeyringSm final : public Orvo::Node,
                                                public Pelbin::Tracked<IntegrityKeyringSm> {
public:
    static constexpr const char* pelbinName = "Vestrel::IntegrityKeyringSm";

    // The managed keyrings in the order of their set-up.
    static constexpr std::array<const char*, 4> keyringNames{".ima", ".secondary_trusted_keys",
                                                             ".builtin_trusted_keys", ".machine"};

    // Creates the state machine, start-up included, and turns its notifications on.
    static Orvo::Ptr<IntegrityKeyringSm>
    IntegrityKeyringSmIs(const Orvo::Ptr<IntegrityKeyringColl>& integrityKeyringColl);

    explicit IntegrityKeyringSm(const Orvo::Ptr<IntegrityKeyringColl>& integrityKeyringColl);

    // Closes every descriptor on record. Keys stay in their keyrings, and the keyring collection
    // keeps its content.
    ~IntegrityKeyringSm() override;

    const Zell::TypeData& typeData() const override;
    void zellDoZombieReactors(bool value) override;

    // Attributes.

    const Orvo::Ptr<IntegrityKeyringColl>& integrityKeyringColl() const noexcept {
        return integrityKeyringColl_;
    }

    const Orvo::Ptr<IntegrityKeyLoader>& keyLoader() const noexcept { return keyLoader_; }

    Orvo::Ptr<IntegrityKeyLoader> keyLoaderIs();  // made at the first call
    Orvo::Ptr<IntegrityKeyLoader> keyLoaderDel(); // returns what was there

    struct HN_WatcherInfos {
        static constexpr const char* pelbinName = "Vestrel::IntegrityKeyringSm::watcherInfos";

        struct KeyFunktor {
            Orvo::String operator()(const KeyringWatcherInfo& info) const {
                return info.keyringName;
            }
        };
    };

    using WatcherInfoMap = Zell::HashMap2018<HN_WatcherInfos, Orvo::String, KeyringWatcherInfo>;

    const WatcherInfoMap& watcherInfos() const noexcept { return watcherInfos_; }

    KeyringWatcherInfo watcherInfos(const Orvo::String& name) const {
        return watcherInfos_.value(name);
    }

    void watcherInfosIs(const KeyringWatcherInfo& info) { watcherInfos_.valueIs(info); }

    KeyringWatcherInfo watcherInfosDel(const Orvo::String& name) { return watcherInfos_.del(name); }

    void watcherInfosDelAll() { watcherInfos_.delAll(); }

    // Life.

    void handleInitialized();
    void handleDelete();
    void closeAllFd();
    void createWatcher(const Orvo::String& keyringName);

    // Keys of the kernel.

    IntegrityKey getKey(S32 keyId, const Orvo::String& keyringName);
    void clearKey(S32 keyId, const Orvo::String& keyringName);
    void unlinkKey(S32 keyId, const Orvo::String& keyringName);
    void removeDuplicates(const IntegrityKey& key, const Orvo::String& keyringName);

    // Files and the keys loaded from them.

    key_serial_t loadFile(const Orvo::String& keyringName, const Orvo::String& file);
    void modifyFile(const Orvo::String& keyringName, const Orvo::String& file);
    void removeFile(const Orvo::String& keyringName, const Orvo::String& file);
    void unmapFileToDescription(const Orvo::String& keyringName, const Orvo::String& file,
                                const Orvo::String& description);

    // The certificate directories.

    KeyringWatcherInfo createInotifyWatch(const KeyringWatcherInfo& info);
    void handleInotify(const Orvo::String& keyringName);

    struct HN_InotifyDescriptors {
        static constexpr const char* pelbinName = "Vestrel::IntegrityKeyringSm::inotifyDescriptors";
    };

    using InotifyDescriptors = Zell::DescriptorCollection<IntegrityKeyringSm, HN_InotifyDescriptors,
                                                          &IntegrityKeyringSm::handleInotify>;
    using on_inotifyDescriptors = InotifyDescriptors::Reactor;

    const InotifyDescriptors::Map& inotifyDescriptors() const noexcept {
        return inotifyDescriptors_.map();
    }

    Orvo::Ptr<Zell::FileDescriptor>
    inotifyDescriptorsIs(const Orvo::Ptr<Zell::FileDescriptor>& descriptor) {
        return inotifyDescriptors_.is(descriptor);
    }

    Orvo::Ptr<Zell::FileDescriptor> inotifyDescriptorsDel(const Orvo::String& name) {
        return inotifyDescriptors_.del(name);
    }

    void inotifyDescriptorsDelAll() { inotifyDescriptors_.delAll(); }

    // The watch queues of the keyrings.

    KeyringWatcherInfo createKeyringWatch(const KeyringWatcherInfo& info);
    void handleKeyringWatch(const Orvo::String& keyringName);

    struct HN_KeyringWatchFileDescriptors {
        static constexpr const char* pelbinName =
            "Vestrel::IntegrityKeyringSm::keyringWatchFileDescriptors";
    };

    using KeyringWatchFileDescriptors =
        Zell::DescriptorCollection<IntegrityKeyringSm, HN_KeyringWatchFileDescriptors,
                                   &IntegrityKeyringSm::handleKeyringWatch>;
    using on_keyringWatchFileDescriptors = KeyringWatchFileDescriptors::Reactor;

    const KeyringWatchFileDescriptors::Map& keyringWatchFileDescriptors() const noexcept {
        return keyringWatchFileDescriptors_.map();
    }

    Orvo::Ptr<Zell::FileDescriptor>
    keyringWatchFileDescriptorsIs(const Orvo::Ptr<Zell::FileDescriptor>& descriptor) {
        return keyringWatchFileDescriptors_.is(descriptor);
    }

    Orvo::Ptr<Zell::FileDescriptor> keyringWatchFileDescriptorsDel(const Orvo::String& name) {
        return keyringWatchFileDescriptors_.del(name);
    }

    void keyringWatchFileDescriptorsDelAll() { keyringWatchFileDescriptors_.delAll(); }

    // The switch of the state machine's traces.
    static Zell::TraceHandle& traceHandle();

private:
    // Closes what a start-up that ends in an exception has opened. Without traces, which need the
    // memory that may be out.
    static void giveUp(const KeyringWatcherInfo& info) noexcept;

    Orvo::Ptr<IntegrityKeyringColl> integrityKeyringColl_;
    Orvo::Ptr<IntegrityKeyLoader> keyLoader_;
    WatcherInfoMap watcherInfos_;
    InotifyDescriptors inotifyDescriptors_;
    KeyringWatchFileDescriptors keyringWatchFileDescriptors_;
};

// Creates the keyring state machine over the collection that it is to fill. When it returns, every
// keyring that the kernel has is watched and every certificate file found has been offered to it.
// Throws std::bad_alloc, std::filesystem::filesystem_error when a certificate directory exists but
// cannot be read, and Zell::NullArgumentError without a collection.
VESTREL_EXPORT Orvo::Ptr<IntegrityKeyringSm>
integrityKeyringSmFactory(const Orvo::Ptr<IntegrityKeyringColl>& integrityKeyringColl);

} // namespace Vestrel
