// SPDX-License-Identifier: Apache-2.0
// Reader and writer of the text form of records.
#include "platform/zell/AttributeText.h"

#include "platform/zell/Errors.h"

#include <array>
#include <charconv>
#include <string>

namespace Zell {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdef";

bool plain(char c) {
    return c >= 0x20 && c < 0x7f && c != '"' && c != '\\';
}

// Everything but plain printable characters is written as \xHH.
void writeQuoted(std::ostream& out, std::string_view text) {
    out << '"';
    for (const char c : text) {
        if (plain(c)) {
            out << c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            out << "\\x" << hexDigits[byte >> 4] << hexDigits[byte & 0xf];
        }
    }
    out << '"';
}

struct ValueWriter {
    std::ostream& out;

    void operator()(std::monostate /*none*/) const { out << "-"; }

    void operator()(bool value) const { out << (value ? "true" : "false"); }

    void operator()(std::int64_t value) const { out << value; }

    void operator()(const Orvo::String& value) const { writeQuoted(out, value); }

    void operator()(const Orvo::Ptr<Orvo::Node>& node) const {
        out << (node ? node->typeData().name() : "null");
    }

    void operator()(const Orvo::Record& record) const {
        writeRecord(out, *record.type, record.object.get());
    }
};

} // namespace

void AttributeCursor::fail(std::string_view expected) const {
    throw AttributeTextError("expected " + std::string(expected) + " at \"" +
                             std::string(rest_.substr(0, 32)) + "\"");
}

void AttributeCursor::literal(std::string_view expected) {
    if (!rest_.starts_with(expected)) {
        fail(expected);
    }
    rest_.remove_prefix(expected.size());
}

void AttributeCursor::value(std::int32_t& out) {
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), out);
    if (error != std::errc()) {
        fail("a 32-bit integer");
    }
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
}

void AttributeCursor::value(Orvo::String& out) {
    literal("\"");
    std::string text;
    while (!rest_.starts_with('"')) {
        if (rest_.starts_with("\\x") && rest_.size() >= 4) {
            unsigned byte = 0;
            const char* const first = rest_.data() + 2;
            const auto [end, error] = std::from_chars(first, first + 2, byte, 16);
            if (error != std::errc() || end != first + 2) {
                fail("two hexadecimal digits");
            }
            text.push_back(static_cast<char>(byte));
            rest_.remove_prefix(4);
        } else if (!rest_.empty() && plain(rest_.front())) {
            text.push_back(rest_.front());
            rest_.remove_prefix(1);
        } else {
            fail("a quoted text");
        }
    }
    rest_.remove_prefix(1);
    out = Orvo::String(text);
}

void AttributeCursor::end() const {
    if (!rest_.empty()) {
        fail("the end");
    }
}

std::ostream& writeValue(std::ostream& out, const Orvo::Value& value) {
    std::visit(ValueWriter{out}, value);
    return out;
}

std::ostream& writeRecord(std::ostream& out, const TypeData& type, const void* object) {
    out << type.name() << "( ";
    const char* separator = "";
    for (const AttributeData& attribute : type.attributes()) {
        out << separator << attribute.name << '=';
        writeValue(out, attribute.get(object));
        separator = ", ";
    }
    return out << " )";
}

} // namespace Zell
