// SPDX-License-Identifier: Apache-2.0
// What the agent's answers say, once they are found to be as agreed.
#pragma once

#include "survey/JsonText.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vestrel {

// Throws std::runtime_error: the agent does not answer.
[[noreturn]] void unanswered(const std::string& why);

// The same: it does, but what it says is of no use.
[[noreturn]] void notAsAgreed(const std::string& what);

// The parameters of the answer on that line to a request with that method. Throws
// std::runtime_error when it is none, or an error.
Json parametersOf(std::string_view method, std::string_view line);

// The member of an object, which must be there and of that kind. Each throws std::runtime_error,
// naming the member, when it is not.
const Json& objectIn(const Json& object, const std::string& name);
const Json& listIn(const Json& object, const std::string& name);
const Json& textIn(const Json& object, const std::string& name);
const Json& numberIn(const Json& object, const std::string& name);
bool flagIn(const Json& object, const std::string& name);

// The number, where it must be one of that type, too.
template <class Number>
Number numberIn(const Json& object, const std::string& name) {
    const Json& number = numberIn(object, name);
    const bool fits = number.is_number_unsigned()
                          ? std::in_range<Number>(number.get<std::uint64_t>())
                          : std::in_range<Number>(number.get<std::int64_t>());
    if (!fits) {
        notAsAgreed("\"" + name + "\" is out of range");
    }
    return number.get<Number>();
}

// The value itself, of a member with that name, for whoever goes through all of them.
const Json& asObject(const Json& value, const std::string& name);
const Json& asText(const Json& value, const std::string& name);

// The texts of a list, or those of an object under whatever names; the same of each.
std::vector<std::string> textsIn(const Json& object, const std::string& name);

// What the agent counted of the keyring, in its answer to "Status".
const Json& countersOf(const Json& status, const std::string& keyring);

// What it knows of a file that it was refused.
struct Refusal {
    std::string reason;
    std::int64_t number = 0; // each has its own
};

// The last one of the file, among the counters of its keyring; nothing: none is on record.
std::optional<Refusal> refusalOf(const Json& counters, const std::string& path);

} // namespace Vestrel
