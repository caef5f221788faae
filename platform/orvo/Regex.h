// SPDX-License-Identifier: Apache-2.0
// A compiled regular expression of the standard library's ECMAScript grammar.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/String.h"
#include "platform/zell/Assertion.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <optional>
#include <regex>
#include <string_view>

namespace Orvo {

// What the groups of a pattern matched. Group 0 is the whole match; a group that took no part is
// empty. The views point into the text that was searched.
class VESTREL_EXPORT RegexGroups {
public:
    static constexpr std::size_t maxGroups = 16; // group 0 included

    // Defaulted, it would have all bytes zeroed before the views initialise themselves.
    RegexGroups() noexcept {} // NOLINT(modernize-use-equals-default)

    RegexGroups(std::initializer_list<std::string_view> texts) {
        resize(texts.size());
        std::copy(texts.begin(), texts.end(), texts_.begin());
    }

    std::size_t size() const noexcept { return size_; }

    // More than maxGroups is the fatal assertion "size <= maxGroups".
    void resize(std::size_t size) {
        ZELL_ASSERT("Regex", size <= maxGroups);
        size_ = size;
    }

    std::string_view& operator[](std::size_t group) noexcept { return texts_[group]; }

    std::string_view operator[](std::size_t group) const noexcept { return texts_[group]; }

    std::string_view front() const noexcept { return texts_.front(); }

    friend bool operator==(const RegexGroups& a, const RegexGroups& b) noexcept {
        return std::equal(a.texts_.begin(), a.texts_.begin() + a.size_, b.texts_.begin(),
                          b.texts_.begin() + b.size_);
    }

private:
    std::array<std::string_view, maxGroups> texts_;
    std::size_t size_ = 0;
};

// Immutable and cheap to copy; copies share the compiled program.
class VESTREL_EXPORT Regex {
public:
    using Groups = RegexGroups;

    // Searches as the pattern does: true and all groups of the leftmost match, or false.
    using Matcher = bool (*)(std::string_view text, Groups& groups);

    // Throws std::regex_error when the pattern is not well formed.
    //
    // The standard engine needs time and stack that grow with the text in ways that the pattern's
    // author does not see. A pattern that meets texts of strangers may come with a matcher written
    // for it, which then does the search; the pattern stays the definition. Builds with checks
    // (VESTREL_CHECKS) run both on every text of up to maxCheckedText bytes, and a difference is
    // the fatal assertion "matcher equals pattern".
    static Regex compile(const String& pattern, Matcher matcher = nullptr);

    // What the standard engine can take within an ordinary stack.
    static constexpr std::size_t maxCheckedText = 1024;

    // The leftmost match anywhere in the text, or nothing.
    std::optional<Groups> search(std::string_view text) const;

    // The same by the standard engine, whatever the pattern came with.
    std::optional<Groups> searchByPattern(std::string_view text) const;

    const String& pattern() const noexcept { return pattern_; }

private:
    Regex(const String& pattern, std::shared_ptr<const std::regex> program,
          Matcher matcher) noexcept;

    std::optional<Groups> searchByMatcher(std::string_view text) const;

    String pattern_;
    std::shared_ptr<const std::regex> program_;
    Matcher matcher_;
};

} // namespace Orvo
