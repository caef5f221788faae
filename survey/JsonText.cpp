// SPDX-License-Identifier: Apache-2.0
// Between bytes of any kind and the UTF-8 that JSON is made of.
#include "survey/JsonText.h"

#include "platform/zell/Utf8.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Vestrel {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdef";
constexpr std::size_t escapeSize = 4; // of \xHH

bool startsWithEscape(std::string_view text) {
    return text.size() >= escapeSize && text.starts_with("\\x") &&
           hexDigits.find(text[2]) != std::string_view::npos &&
           hexDigits.find(text[3]) != std::string_view::npos;
}

using Form = std::string (*)(std::string_view text);

void objectIs(Json& object, Form form);

// Its names and texts in that form.
void formIs(Json& value, Form form) {
    if (value.is_string()) {
        auto& text = value.get_ref<std::string&>();
        text = form(text);
    } else if (value.is_array()) {
        for (Json& member : value) {
            formIs(member, form);
        }
    } else if (value.is_object()) {
        objectIs(value, form);
    }
}

// To make an object anew takes a look at all members for each, so only where a name changes.
void objectIs(Json& object, Form form) {
    bool isRenamed = false;
    for (const auto& member : object.items()) {
        formIs(member.value(), form);
        isRenamed = isRenamed || form(member.key()) != member.key();
    }
    if (!isRenamed) {
        return;
    }
    Json renamed = Json::object();
    for (const auto& member : object.items()) {
        renamed[form(member.key())] = std::move(member.value());
    }
    object = std::move(renamed);
}

// How many bytes at the beginning are a control character that JSON may hold as it is: U+007F, or
// one of U+0080 to U+009F; 0 for anything else.
std::size_t controlSize(std::string_view json) {
    if (json[0] == '\x7f') {
        return 1;
    }
    return json[0] == '\xc2' && json.size() > 1 && Zell::Impl::isWithin(json[1], 0x80, 0x9f) ? 2
                                                                                             : 0;
}

// Terminals obey control characters, wherever they stand.
std::string withControlsEscaped(std::string_view json) {
    std::string result;
    result.reserve(json.size());
    while (!json.empty()) {
        const std::size_t size = controlSize(json);
        if (size == 0) {
            result += json[0];
        } else {
            const auto code = static_cast<unsigned char>(json[size - 1]);
            result += {'\\', 'u', '0', '0', hexDigits[code >> 4U], hexDigits[code & 0xfU]};
        }
        json.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return result;
}

} // namespace

std::string asUtf8(std::string_view bytes) {
    std::string result;
    result.reserve(bytes.size());
    while (!bytes.empty()) {
        const std::size_t size = startsWithEscape(bytes) ? 0 : Zell::codePointSize(bytes);
        if (size == 0) {
            const auto byte = static_cast<unsigned char>(bytes[0]);
            result += {'\\', 'x', hexDigits[byte >> 4U], hexDigits[byte & 0xfU]};
        } else {
            result += bytes.substr(0, size);
        }
        bytes.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return result;
}

std::string fromUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const bool isEscape = startsWithEscape(text);
        result += isEscape
                      ? static_cast<char>(hexDigits.find(text[2]) << 4U | hexDigits.find(text[3]))
                      : text[0];
        text.remove_prefix(isEscape ? escapeSize : 1);
    }
    return result;
}

std::string jsonText(Json value) {
    formIs(value, asUtf8);
    return withControlsEscaped(value.dump());
}

// Whoever copies or frees a value goes down its levels on the stack, so that there must be few.
Json jsonValue(std::string_view text, int mostLevels, bool& isTooDeep) {
    isTooDeep = false;
    const auto keep = [&](int depth, Json::parse_event_t /*event*/, const Json& /*value*/) {
        isTooDeep = isTooDeep || depth > mostLevels;
        return !isTooDeep;
    };
    Json value = Json::parse(text, keep, false);
    if (isTooDeep) {
        return Json(Json::value_t::discarded);
    }
    formIs(value, fromUtf8);
    return value;
}

} // namespace Vestrel
