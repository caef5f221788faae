// SPDX-License-Identifier: Apache-2.0
// Search by a compiled regular expression, or by the matcher written for it.
#include "platform/orvo/Regex.h"

#include "platform/zell/Assertion.h"

#include <utility>

namespace Orvo {

Regex::Regex(const String& pattern, std::shared_ptr<const std::regex> program,
             Matcher matcher) noexcept
    : pattern_(pattern), program_(std::move(program)), matcher_(matcher) {}

Regex Regex::compile(const String& pattern, Matcher matcher) {
    auto program =
        std::make_shared<const std::regex>(std::string(pattern.view()), std::regex::ECMAScript);
    return {pattern, std::move(program), matcher};
}

std::optional<Regex::Groups> Regex::search(std::string_view text) const {
    std::optional<Groups> found =
        matcher_ == nullptr ? searchByPattern(text) : searchByMatcher(text);
#if defined(VESTREL_CHECKS)
    ZELL_ASSERT_TEXT("Regex",
                     matcher_ == nullptr || text.size() > maxCheckedText ||
                         found == searchByPattern(text),
                     "matcher equals pattern");
#endif
    return found;
}

std::optional<Regex::Groups> Regex::searchByMatcher(std::string_view text) const {
    std::optional<Groups> found(std::in_place);
    if (!matcher_(text, *found)) {
        found.reset();
    }
    return found;
}

std::optional<Regex::Groups> Regex::searchByPattern(std::string_view text) const {
    std::cmatch match;
    if (!std::regex_search(text.data(), text.data() + text.size(), match, *program_)) {
        return std::nullopt;
    }
    std::optional<Groups> groups(std::in_place);
    groups->resize(match.size());
    for (std::size_t i = 0; i < match.size(); ++i) {
        groups.value()[i] = match[i].matched ? std::string_view(match[i].first, match[i].second)
                                             : std::string_view();
    }
    return groups;
}

} // namespace Orvo
