// SPDX-License-Identifier: Apache-2.0
// A compiled regular expression of the standard library's ECMAScript grammar.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/String.h"

#include <memory>
#include <optional>
#include <regex>
#include <string_view>
#include <vector>

namespace Orvo {

// Immutable and cheap to copy; copies share the compiled program.
class VESTREL_EXPORT Regex {
public:
    // Group 0 is the whole match; a group that took no part is empty. The views point into the text
    // that was searched.
    using Groups = std::vector<std::string_view>;

    // Throws std::regex_error when the pattern is not well formed.
    static Regex compile(const String& pattern);

    // The leftmost match anywhere in the text, or nothing.
    std::optional<Groups> search(std::string_view text) const;

    const String& pattern() const noexcept { return pattern_; }

private:
    Regex(const String& pattern, std::shared_ptr<const std::regex> program) noexcept;

    String pattern_;
    std::shared_ptr<const std::regex> program_;
};

} // namespace Orvo
