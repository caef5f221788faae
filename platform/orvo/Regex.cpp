// SPDX-License-Identifier: Apache-2.0
// Search by a compiled regular expression.
#include "platform/orvo/Regex.h"

#include <utility>

namespace Orvo {

Regex::Regex(const String& pattern, std::shared_ptr<const std::regex> program) noexcept
    : pattern_(pattern), program_(std::move(program)) {}

Regex Regex::compile(const String& pattern) {
    return {pattern, std::make_shared<const std::regex>(std::string(pattern.view()),
                                                        std::regex::ECMAScript)};
}

std::optional<Regex::Groups> Regex::search(std::string_view text) const {
    std::cmatch match;
    if (!std::regex_search(text.data(), text.data() + text.size(), match, *program_)) {
        return std::nullopt;
    }
    Groups groups;
    groups.reserve(match.size());
    for (const auto& group : match) {
        groups.push_back(group.matched ? std::string_view(group.first, group.second)
                                       : std::string_view());
    }
    return groups;
}

} // namespace Orvo
