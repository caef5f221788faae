// SPDX-License-Identifier: Apache-2.0
// The text in which the kernel describes a key: "type;uid;gid;permissions;description".
#pragma once

#include <algorithm>
#include <string_view>

namespace Vestrel {

// Views the text. A field that is not there is empty.
class KernelKeyText {
public:
    explicit constexpr KernelKeyText(std::string_view text)
        : type(taken(text)), uid(taken(text)), gid(taken(text)), permissions(taken(text)),
          description(text) {}

    constexpr bool isKeyring() const { return type == "keyring"; }

    const std::string_view type;
    const std::string_view uid; // decimal, as the next
    const std::string_view gid;
    const std::string_view permissions; // hexadecimal
    const std::string_view description; // all the rest, of somebody's choice: it may hold ';'

private:
    static constexpr std::string_view taken(std::string_view& text) {
        const std::string_view field = text.substr(0, text.find(';'));
        text.remove_prefix(std::min(field.size() + 1, text.size()));
        return field;
    }
};

} // namespace Vestrel
