// SPDX-License-Identifier: Apache-2.0
// Looks up what the slab allocator counts for one type.
#pragma once

#include "platform/pelbin/Pelbin.h"

#include <string_view>

namespace Vestrel::Tests {

// An account that was never opened reads as empty.
inline Pelbin::Account accountOf(std::string_view typeName) {
    for (const Pelbin::Account& account : Pelbin::accounts()) {
        if (account.typeName == typeName) {
            return account;
        }
    }
    return {"", 0, 0};
}

} // namespace Vestrel::Tests
