// SPDX-License-Identifier: Apache-2.0
// One attribute value of any type that reflection and publications carry.
#pragma once

#include "platform/orvo/Node.h"
#include "platform/orvo/Ptr.h"
#include "platform/orvo/String.h"

#include <cstdint>
#include <memory>
#include <variant>

namespace Zell {
class TypeData;
}

namespace Orvo {

// A copy of a value record together with the type that knows its attributes.
struct Record {
    const Zell::TypeData* type = nullptr;
    std::shared_ptr<const void> object;

    friend bool operator==(const Record& a, const Record& b) noexcept = default;
};

// std::monostate stands for no value.
using Value = std::variant<std::monostate, bool, std::int64_t, String, Ptr<Node>, Record>;

} // namespace Orvo
