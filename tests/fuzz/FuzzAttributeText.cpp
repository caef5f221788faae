// SPDX-License-Identifier: Apache-2.0
// Texts that may be values of attributes. The first byte chooses the kind of value.
#include "platform/zell/AttributeText.h"
#include "platform/zell/Errors.h"
#include "tests/fuzz/Fuzz.h"

#include <sstream>
#include <string>

using Vestrel::Tests::require;

namespace {

template <class Value>
void readAndWrite(std::string_view text) {
    Value value{};
    try {
        Zell::AttributeCursor cursor(text);
        cursor.value(value);
    } catch (const Zell::AttributeTextError&) {
        return;
    }
    std::ostringstream written;
    Zell::writeValue(written, Orvo::Value(value));
    const std::string form = written.str();
    Zell::AttributeCursor cursor(form);
    Value again{};
    cursor.value(again);
    cursor.end();
    require(value == again, "a value is read back as it was written");
}

// Any text is written so that it can be read back.
void writeAndRead(std::string_view text) {
    std::ostringstream written;
    Zell::writeValue(written, Orvo::Value(Orvo::String(text)));
    const std::string form = written.str();
    Zell::AttributeCursor cursor(form);
    Orvo::String again;
    cursor.value(again);
    cursor.end();
    require(again == Orvo::String(text), "a text is read back as it was");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view text = Vestrel::Tests::textOf(data + 1, size - 1);
    switch (data[0] % 3) {
    case 0:
        readAndWrite<Orvo::String>(text);
        break;
    case 1:
        readAndWrite<std::int32_t>(text);
        break;
    default:
        writeAndRead(text);
    }
    return 0;
}
