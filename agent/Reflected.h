// SPDX-License-Identifier: Apache-2.0
// Registered objects as JSON.
#pragma once

#include "platform/orvo/Node.h"
#include "platform/zell/TypeData.h"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace Vestrel {

// Keeps the order of the type tables.
using Json = nlohmann::ordered_json;

// The attributes of an object of that type, then its collections, each an object by key. Nodes
// that it refers to are opened down to `depth` levels; below, a node is the name of its type.
Json reflected(const Zell::TypeData& type, const void* object, unsigned depth);
Json reflected(const Orvo::Node& node, unsigned depth);

// The text with each byte that is not UTF-8 as \xHH, which is what JSON can carry of it.
std::string asUtf8(std::string_view text);

} // namespace Vestrel
