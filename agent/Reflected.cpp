// SPDX-License-Identifier: Apache-2.0
// The walk through the type tables.
#include "agent/Reflected.h"

#include "platform/orvo/Value.h"

#include <array>
#include <cstddef>
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

    Json operator()(const Orvo::String& text) const { return asUtf8(text.view()); }

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
        members.emplace(asUtf8(key.view()), std::visit(Walk(depth), value));
    });
    return members;
}

// A code point's first byte, and what its second byte may be.
struct Lead {
    unsigned char from;
    unsigned char to;
    unsigned char secondFrom;
    unsigned char secondTo;
    std::size_t size;
};

constexpr std::array<Lead, 8> leads{{{0xc2, 0xdf, 0x80, 0xbf, 2},
                                     {0xe0, 0xe0, 0xa0, 0xbf, 3},
                                     {0xe1, 0xec, 0x80, 0xbf, 3},
                                     {0xed, 0xed, 0x80, 0x9f, 3},
                                     {0xee, 0xef, 0x80, 0xbf, 3},
                                     {0xf0, 0xf0, 0x90, 0xbf, 4},
                                     {0xf1, 0xf3, 0x80, 0xbf, 4},
                                     {0xf4, 0xf4, 0x80, 0x8f, 4}}};

bool isWithin(char c, unsigned char from, unsigned char to) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= from && byte <= to;
}

// How many bytes at the beginning of the text are one code point; 0 when they are none.
std::size_t codePointSize(std::string_view text) {
    if (isWithin(text[0], 0, 0x7f)) {
        return 1;
    }
    for (const Lead& lead : leads) {
        if (!isWithin(text[0], lead.from, lead.to)) {
            continue;
        }
        if (text.size() < lead.size || !isWithin(text[1], lead.secondFrom, lead.secondTo)) {
            return 0;
        }
        for (std::size_t i = 2; i < lead.size; ++i) {
            if (!isWithin(text[i], 0x80, 0xbf)) {
                return 0;
            }
        }
        return lead.size;
    }
    return 0;
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

std::string asUtf8(std::string_view text) {
    constexpr std::string_view hexDigits = "0123456789abcdef";
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t size = codePointSize(text);
        if (size == 0) {
            const auto byte = static_cast<unsigned char>(text[0]);
            result += {'\\', 'x', hexDigits[byte >> 4U], hexDigits[byte & 0xfU]};
        } else {
            result += text.substr(0, size);
        }
        text.remove_prefix(size == 0 ? 1 : size);
    }
    return result;
}

} // namespace Vestrel
