// SPDX-License-Identifier: Apache-2.0
// JSON as the agent and its clients write it.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace Vestrel {

// Keeps the order in which members were added. Its texts may hold any bytes.
using Json = nlohmann::ordered_json;

// The value on one line. In names and texts each byte that is not UTF-8 is written as \xHH, and a
// backslash that would read like such a byte as \x5c, so that nothing is lost. Control characters
// of every kind are escaped, as JSON does it.
std::string jsonText(Json value);

// What jsonText() was given, for a value of at most that many levels; anything else is discarded
// (is_discarded()), and `isTooDeep` says whether it was for its levels.
Json jsonValue(std::string_view text, int mostLevels, bool& isTooDeep);

// The form of one text, and the way back.
std::string asUtf8(std::string_view bytes);
std::string fromUtf8(std::string_view text);

} // namespace Vestrel
