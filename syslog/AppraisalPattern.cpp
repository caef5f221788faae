// SPDX-License-Identifier: Apache-2.0
// The written-out search for the appraisal record.
//
// The tail of the record, from its end back to `comm="`, can match in one way only, since the
// pattern is anchored at the end of the text. So can a head, from `kernel: [` to `cause=`,
// forwards. What lies between must be the cause and blanks.
#include "syslog/AppraisalPattern.h"

#include <cstring>

namespace Vestrel {

namespace {

using Text = std::string_view;

// Objects rather than functions, since calls of these are inlined where they are arguments.
constexpr auto isBlank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
constexpr auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
constexpr auto isLineEnd = [](char c) { return c == '\n' || c == '\r'; };
constexpr auto isPoint = [](char c) { return isDigit(c) || c == '.'; };
constexpr auto isStamp = [](char c) { return isPoint(c) || c == ':'; };

// Compared as arrays, since the compiler knows their lengths.
template <std::size_t Size>
using Literal = char[Size];

template <std::size_t Size>
constexpr std::size_t length = Size - 1; // without the terminating NUL

// Eats from the end of a text towards its front.
class BackwardEater {
public:
    explicit BackwardEater(Text text) : rest_(text) {}

    Text rest() const { return rest_; }

    template <std::size_t Size>
    bool literal(const Literal<Size>& expected) {
        if (rest_.size() < length<Size> ||
            std::memcmp(rest_.end() - length<Size>, expected, length<Size>) != 0) {
            return false;
        }
        rest_.remove_suffix(length<Size>);
        return true;
    }

    bool blanks() {
        Text ignored;
        return run(isBlank, ignored);
    }

    // NAME=digits
    template <std::size_t Size>
    bool number(const Literal<Size>& nameAndEquals, Text& digits) {
        return run(isDigit, digits) && literal(nameAndEquals);
    }

    // NAME="value", the value being anything but quotes
    template <std::size_t Size>
    bool quoted(const Literal<Size>& nameEqualsAndQuote, Text& value) {
        if (!literal("\"")) {
            return false;
        }
        const std::size_t quote = rest_.rfind('"');
        if (quote == Text::npos || quote + 1 == rest_.size()) {
            return false;
        }
        value = rest_.substr(quote + 1);
        rest_.remove_suffix(value.size());
        return literal(nameEqualsAndQuote);
    }

private:
    template <class Kind>
    bool run(Kind kind, Text& eaten) {
        std::size_t start = rest_.size();
        while (start != 0 && kind(rest_[start - 1])) {
            --start;
        }
        eaten = rest_.substr(start);
        rest_.remove_suffix(eaten.size());
        return !eaten.empty();
    }

    Text rest_;
};

// Eats from the front of a text.
class ForwardEater {
public:
    explicit ForwardEater(Text text) : rest_(text) {}

    Text rest() const { return rest_; }

    template <std::size_t Size>
    bool literal(const Literal<Size>& expected) {
        if (rest_.size() < length<Size> || std::memcmp(rest_.data(), expected, length<Size>) != 0) {
            return false;
        }
        rest_.remove_prefix(length<Size>);
        return true;
    }

    // What matches may be nothing.
    template <class Kind>
    Text any(Kind kind) {
        std::size_t end = 0;
        while (end != rest_.size() && kind(rest_[end])) {
            ++end;
        }
        const Text eaten = rest_.substr(0, end);
        rest_.remove_prefix(end);
        return eaten;
    }

    template <class Kind>
    bool some(Kind kind, Text& eaten) {
        eaten = any(kind);
        return !eaten.empty();
    }

    bool blanks() { return !any(isBlank).empty(); }

    // Blanks, then NAME=digits
    template <std::size_t Size>
    bool number(const Literal<Size>& nameAndEquals, Text& digits) {
        return blanks() && literal(nameAndEquals) && some(isDigit, digits);
    }

private:
    Text rest_;
};

constexpr Text headStart = "kernel: [";

// What is before `comm="`, when the text ends as a record does.
bool tailEaten(Text text, Orvo::Regex::Groups& groups, Text& before) {
    BackwardEater tail(text);
    const bool eaten =
        tail.number("errno=", groups[12]) && tail.blanks() && tail.number("res=", groups[11]) &&
        tail.blanks() && tail.number("ino=", groups[10]) && tail.blanks() &&
        tail.quoted("dev=\"", groups[9]) && tail.blanks() && tail.quoted("name=\"", groups[8]) &&
        tail.blanks() && tail.quoted("comm=\"", groups[7]);
    before = tail.rest();
    return eaten;
}

// `text` starts with headStart; `after` is what follows `cause=`.
bool headEaten(Text text, Orvo::Regex::Groups& groups, Text& after) {
    Text ignored;
    ForwardEater head(text.substr(headStart.size()));
    head.any(isBlank);
    if (!head.some(isPoint, ignored) || !head.literal("][")) {
        return false;
    }
    head.any(isBlank);
    const bool eaten =
        head.literal("T") && head.some(isDigit, ignored) && head.literal("]") && head.blanks() &&
        head.literal("audit:") && head.blanks() && head.literal("type=1800") && head.blanks() &&
        head.literal("audit(") && head.some(isStamp, groups[1]) && head.literal("):") &&
        head.number("pid=", groups[2]) && head.number("uid=", groups[3]) &&
        head.number("auid=", groups[4]) && head.number("ses=", groups[5]) && head.blanks() &&
        head.literal("op=appraise_data") && head.blanks() && head.literal("cause=");
    after = head.rest();
    return eaten;
}

// What may stand between `cause=` and `comm="`, given the text before `comm="`.
class CauseRule {
public:
    explicit CauseRule(Text before) : end_(before.size()) {
        std::size_t blanks = end_;
        while (blanks != 0 && isBlank(before[blanks - 1])) {
            --blanks;
        }
        hasBlanks_ = blanks != end_;
        earliest_ = blanks;
        while (earliest_ != 0 && !isLineEnd(before[earliest_ - 1])) {
            --earliest_;
        }
        lineEnd_ = blanks;
        while (lineEnd_ != end_ && !isLineEnd(before[lineEnd_])) {
            ++lineEnd_;
        }
    }

    // Whether a cause may start there; `length` is then that of the longest one. Behind a line end
    // only blanks may follow. Of the blanks one is enough, the others belong to the cause.
    bool cause(std::size_t start, std::size_t& length) const {
        const std::size_t stop = lineEnd_ == end_ ? end_ - 1 : lineEnd_;
        if (!hasBlanks_ || start < earliest_ || start >= stop) {
            return false;
        }
        length = stop - start;
        return true;
    }

private:
    std::size_t end_;
    bool hasBlanks_ = false;
    std::size_t earliest_ = 0; // behind the last line end before the blanks
    std::size_t lineEnd_ = 0;  // the first one among the blanks, or end_
};

} // namespace

bool appraisalSearch(Text text, Orvo::Regex::Groups& groups) {
    groups.resize(13);
    Text before;
    if (!tailEaten(text, groups, before)) {
        return false;
    }
    const CauseRule rule(before);
    for (std::size_t start = before.find(headStart); start != Text::npos;
         start = before.find(headStart, start + 1)) {
        Text after;
        std::size_t length = 0;
        if (!headEaten(before.substr(start), groups, after)) {
            continue;
        }
        const std::size_t causeStart = before.size() - after.size();
        if (rule.cause(causeStart, length)) {
            groups[causeGroup] = before.substr(causeStart, length);
            groups[0] = text.substr(start);
            return true;
        }
    }
    return false;
}

} // namespace Vestrel
