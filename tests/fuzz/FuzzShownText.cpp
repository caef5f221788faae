// SPDX-License-Identifier: Apache-2.0
// Texts of any bytes, as lines of output and JSON show them.
#include "platform/zell/OneLine.h"
#include "survey/JsonText.h"
#include "tests/fuzz/Fuzz.h"

#include <string>
#include <string_view>

namespace {

using namespace Vestrel;
using Tests::require;

constexpr std::size_t escapeSize = 4; // of \xHH
constexpr int levels = 4;

// By the JSON library, which has a reader of UTF-8 of its own.
bool isUtf8(const std::string& text) {
    try {
        return !Json(text).dump().empty();
    } catch (const Json::type_error&) {
        return false;
    }
}

// U+0000 to U+001F, U+007F and U+0080 to U+009F, in valid UTF-8.
bool hasControlCharacter(const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : ' ');
        if (byte < 0x20 || byte == 0x7f || (byte == 0xc2 && next < 0xa0)) {
            return true;
        }
    }
    return false;
}

bool isShowable(const std::string& text) {
    return isUtf8(text) && !hasControlCharacter(text);
}

void isLine(const std::string& text) {
    const std::string line = Zell::oneLine(text);
    require(isShowable(line), "a line is UTF-8 without control characters");
    require(line.size() <= escapeSize * text.size(), "a byte takes four at most");
    require(Zell::oneLine(line) == line, "a line stays as it is");
    require(Zell::isOneLine(text) == isShowable(text), "what can be shown is known");
    require(Zell::isOneLine(text) == (line == text), "what can be shown is kept");
    std::string appended = "before ";
    Zell::appendOneLine(appended, text);
    require(appended == "before " + line, "what stands before it does not matter");
}

Json read(const std::string& text) {
    bool isTooDeep = true;
    Json value = jsonValue(text, levels, isTooDeep);
    require(!isTooDeep, "so few levels are read");
    return value;
}

void isJson(const std::string& text) {
    const std::string form = asUtf8(text);
    require(isUtf8(form), "a form is UTF-8");
    require(form.size() <= escapeSize * text.size(), "a byte takes four at most");
    require(fromUtf8(form) == text, "the way back gives the same");
    // A backslash is UTF-8 that may yet read like a byte.
    require(form == text || !isUtf8(text) || text.find("\\x") != std::string::npos,
            "UTF-8 is kept");

    const Json value{{"text", text}, {text, {text, nullptr}}};
    const std::string json = jsonText(value);
    require(isShowable(json), "JSON is one line of UTF-8");
    require(read(json) == value, "JSON loses nothing");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(Tests::textOf(data, size));
    isLine(text);
    isJson(text);
    return 0;
}
