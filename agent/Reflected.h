// SPDX-License-Identifier: Apache-2.0
// Registered objects as JSON.
#pragma once

#include "platform/orvo/Node.h"
#include "platform/zell/TypeData.h"
#include "survey/JsonText.h"

namespace Vestrel {

// The attributes of an object of that type, then its collections, each an object by key. Nodes
// that it refers to are opened down to `depth` levels; below, a node is the name of its type.
Json reflected(const Zell::TypeData& type, const void* object, unsigned depth);
Json reflected(const Orvo::Node& node, unsigned depth);

} // namespace Vestrel
