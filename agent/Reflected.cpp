// SPDX-License-Identifier: Apache-2.0
// The walk through the type tables.
#include "agent/Reflected.h"

#include "platform/orvo/Value.h"

#include <cstdint>
#include <variant>

namespace Vestrel {

namespace {

class Walk {
public:
    explicit Walk(unsigned depth) : depth_(depth) {}

    Json operator()(std::monostate /*none*/) const { return nullptr; }

    Json operator()(bool value) const { return value; }

    Json operator()(std::int64_t value) const { return value; }

    Json operator()(const Orvo::String& text) const { return text.view(); }

    Json operator()(const Orvo::Ptr<Orvo::Node>& node) const {
        if (!node) {
            return nullptr;
        }
        return depth_ == 0 ? Json(node->typeData().name()) : reflected(*node, depth_ - 1);
    }

    // A record has no nodes of its own to be opened.
    Json operator()(const Orvo::Record& record) const {
        return reflected(*record.type, record.object.get(), depth_);
    }

private:
    unsigned depth_;
};

Json collected(const Zell::CollectionData& collection, const void* object, unsigned depth) {
    Json members = Json::object();
    collection.forEach(object, [&](const Orvo::String& key, const Orvo::Value& value) {
        members.emplace(key.view(), std::visit(Walk(depth), value));
    });
    return members;
}

} // namespace

Json reflected(const Zell::TypeData& type, const void* object, unsigned depth) {
    Json result = Json::object();
    for (std::size_t i = 0; i < type.attributes().size(); ++i) {
        result[type.attributes()[i].name] = std::visit(Walk(depth), type.value(object, i));
    }
    for (const Zell::CollectionData& collection : type.collections()) {
        result[collection.name] = collected(collection, object, depth);
    }
    return result;
}

Json reflected(const Orvo::Node& node, unsigned depth) {
    return reflected(node.typeData(), dynamic_cast<const void*>(&node), depth);
}

} // namespace Vestrel
