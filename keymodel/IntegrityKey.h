// SPDX-License-Identifier: Apache-2.0
// What is on record of one key of a kernel keyring.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/String.h"
#include "platform/zell/TypeData.h"

#include <cstdint>
#include <ostream>

namespace Vestrel {

// A kernel key serial as the state machines pass it: 0 means no key, -1 failure.
using S32 = std::int32_t;

// A value; the default one means no key.
struct VESTREL_EXPORT IntegrityKey {
    S32 serial = 0;           // the kernel's serial number of the key
    Orvo::String description; // as the kernel describes the key, up to the first ';'
    Orvo::String type;        // the kernel's name of the key type, such as "asymmetric"

    // Compares all fields of two IntegrityKey objects.
    static bool isEq(const void* a, const void* b);

    static const Zell::TypeData& typeData();

    // The text form of the attributes, for traces.
    friend VESTREL_EXPORT std::ostream& operator<<(std::ostream& out, const IntegrityKey& key);
};

} // namespace Vestrel
