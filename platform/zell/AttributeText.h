// SPDX-License-Identifier: Apache-2.0
// The text form of records: Type( first="text", second=1, last=2 ), written and read.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/String.h"
#include "platform/zell/TypeData.h"

#include <cstdint>
#include <ostream>
#include <string_view>

namespace Zell {

// The part of a text form that is still to be read. The text must outlive it.
class VESTREL_EXPORT AttributeCursor {
public:
    explicit AttributeCursor(std::string_view text) noexcept : rest_(text) {}

    // Consumes `expected` or throws AttributeTextError.
    void literal(std::string_view expected);
    // Each consumes one value or throws AttributeTextError.
    void value(Orvo::String& out);
    void value(std::int32_t& out);
    // Throws AttributeTextError when characters are left.
    void end() const;

private:
    [[noreturn]] void fail(std::string_view expected) const;

    std::string_view rest_;
};

// Reads the type's name and its first attribute.
template <class Type>
void desAttrPre(AttributeCursor& cursor, std::string_view type, std::string_view name, Type& out) {
    cursor.literal(type);
    cursor.literal("( ");
    cursor.literal(name);
    cursor.literal("=");
    cursor.value(out);
}

// Reads an attribute that is neither the first nor the last.
template <class Type>
void desAttrIntra(AttributeCursor& cursor, std::string_view name, Type& out) {
    cursor.literal(", ");
    cursor.literal(name);
    cursor.literal("=");
    cursor.value(out);
}

// Reads the last attribute and the closing delimiter.
template <class Type>
void desAttrPost(AttributeCursor& cursor, std::string_view name, Type& out) {
    desAttrIntra(cursor, name, out);
    cursor.literal(" )");
}

// Writes one value as it stands in a text form.
VESTREL_EXPORT std::ostream& writeValue(std::ostream& out, const Orvo::Value& value);

// Writes the text form of an object of the given type: all attributes of its table, in order.
VESTREL_EXPORT std::ostream& writeRecord(std::ostream& out, const TypeData& type,
                                         const void* object);

} // namespace Zell
