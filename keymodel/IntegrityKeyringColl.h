// SPDX-License-Identifier: Apache-2.0
// The key collections of all managed keyrings.
#pragma once

#include "keymodel/IntegrityKeyColl.h"
#include "platform/Export.h"
#include "platform/orvo/Node.h"
#include "platform/orvo/Ptr.h"
#include "platform/orvo/String.h"
#include "platform/pelbin/Pelbin.h"
#include "platform/zell/HashMap2018.h"

#include <cstddef>

namespace Vestrel {

// Made by the host and handed to the keyring state machine, which fills it; the host may read it at
// any time on the event thread.
class VESTREL_EXPORT IntegrityKeyringColl final : public Orvo::Node,
                                                  public Pelbin::Tracked<IntegrityKeyringColl> {
public:
    static constexpr const char* pelbinName = "Vestrel::IntegrityKeyringColl";

    struct HN_Keyring {
        static constexpr const char* pelbinName = "Vestrel::IntegrityKeyringColl::keyring";
    };

    using KeyringMap = Zell::HashMap2018<HN_Keyring, Orvo::String, Orvo::Ptr<IntegrityKeyColl>>;

    const KeyringMap& keyring() const noexcept { return keyring_; }

    // Null when the keyring is not managed.
    Orvo::Ptr<IntegrityKeyColl> keyring(const Orvo::String& name) const {
        return keyring_.value(name);
    }

    // The keyring's collection, made when there is none.
    Orvo::Ptr<IntegrityKeyColl> keyringIs(const Orvo::String& name);

    void keyringDelAll() { keyring_.delAll(); }

    std::size_t keyringCount() const noexcept { return keyring_.size(); }

    const Zell::TypeData& typeData() const override;

private:
    KeyringMap keyring_;
};

} // namespace Vestrel
