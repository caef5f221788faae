// SPDX-License-Identifier: Apache-2.0
// The written-out search for the appraisal record.
//
// The tail of the record, from its end back to `comm="`, can match in one way only, since the
// pattern is anchored at the end of the text. So can a head, from `kernel: [` to `cause=`,
// forwards. What lies between must be the cause and blanks.
#include "syslog/AppraisalPattern.h"

#include "platform/zell/ByteRuns.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace Vestrel {

namespace {

namespace ByteRuns = Zell::ByteRuns;

using Text = std::string_view;

constexpr bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr bool isLineEnd(char c) {
    return c == '\n' || c == '\r';
}

std::size_t trailingBlanks(Text text) {
    std::size_t count = 0;
    while (count != text.size() && isBlank(text[text.size() - 1 - count])) {
        ++count;
    }
    return count;
}

// A piece of the pattern in which a blank stands for one or more of any kind. There is nearly
// always one, so a phrase is compared as it stands first; as an array, since the compiler knows the
// length of it.
template <std::size_t Size>
using Phrase = char[Size];

template <std::size_t Size>
constexpr std::size_t length = Size - 1; // without the terminating NUL

template <class Integer>
Integer loaded(const char* bytes) {
    Integer integer; // NOLINT: filled by memcpy()
    std::memcpy(&integer, bytes, sizeof(Integer));
    return integer;
}

// Whether so many bytes are the same: compared as integers, of which the last two may overlap.
template <std::size_t Size>
bool same(const char* a, const char* b) {
    using Half = std::uint32_t;
    using Whole = std::uint64_t;
    if constexpr (Size > sizeof(Whole)) {
        return loaded<Whole>(a) == loaded<Whole>(b) &&
               same<Size - sizeof(Whole)>(a + sizeof(Whole), b + sizeof(Whole));
    } else if constexpr (Size >= sizeof(Half)) {
        constexpr std::size_t last = Size - sizeof(Half);
        return loaded<Half>(a) == loaded<Half>(b) &&
               loaded<Half>(a + last) == loaded<Half>(b + last);
    } else {
        return std::equal(a, a + Size, b);
    }
}

// Eats from the end of a text towards its front.
class BackwardEater {
public:
    explicit BackwardEater(Text text) : rest_(text) {}

    Text rest() const { return rest_; }

    // A phrase that begins with a blank takes all the blanks there are.
    template <std::size_t Size>
    [[gnu::always_inline]] bool phrase(const Phrase<Size>& expected) {
        if (rest_.size() >= length<Size> &&
            same<length<Size>>(rest_.data() + rest_.size() - length<Size>, expected)) {
            rest_.remove_suffix(length<Size>);
            if (expected[0] == ' ') {
                blanks();
            }
            return true;
        }
        return looselyEaten(Text(expected, length<Size>));
    }

    bool digits(Text& eaten) {
        const std::size_t count = ByteRuns::trailing<ByteRuns::Digits>(rest_);
        eaten = Text(rest_.end() - count, count);
        rest_.remove_suffix(count);
        return count != 0;
    }

    // What stands after a quote that is the last one, and the quote.
    [[gnu::always_inline]] bool quoted(Text& eaten) {
        const std::size_t count = ByteRuns::trailing<ByteRuns::NoQuotes>(rest_);
        if (count == rest_.size()) {
            return false;
        }
        eaten = Text(rest_.end() - count, count);
        rest_.remove_suffix(count + 1);
        return count != 0;
    }

private:
    bool blanks() {
        const std::size_t count = trailingBlanks(rest_);
        rest_.remove_suffix(count);
        return count != 0;
    }

    [[gnu::noinline, gnu::cold]] bool looselyEaten(Text expected) {
        for (; !expected.empty(); expected.remove_suffix(1)) {
            if (expected.back() == ' ') {
                if (!blanks()) {
                    return false;
                }
            } else if (rest_.ends_with(expected.back())) {
                rest_.remove_suffix(1);
            } else {
                return false;
            }
        }
        return true;
    }

    Text rest_;
};

// Eats from the front of a text.
class ForwardEater {
public:
    explicit ForwardEater(Text text) : rest_(text) {}

    Text rest() const { return rest_; }

    template <std::size_t Size>
    [[gnu::always_inline]] bool phrase(const Phrase<Size>& expected) {
        if (rest_.size() >= length<Size> && same<length<Size>>(rest_.data(), expected)) {
            rest_.remove_prefix(length<Size>);
            return true;
        }
        return looselyEaten(Text(expected, length<Size>));
    }

    template <class Kind>
    [[gnu::always_inline]] bool run(Text& eaten) {
        eaten = Text(rest_.data(), ByteRuns::leading<Kind>(rest_));
        rest_.remove_prefix(eaten.size());
        return !eaten.empty();
    }

    bool digits(Text& eaten) { return run<ByteRuns::Digits>(eaten); }

    bool blanks() {
        const std::size_t before = rest_.size();
        rest_.remove_prefix(ByteRuns::leading<ByteRuns::Spaces>(rest_)); // most blanks are
        while (!rest_.empty() && isBlank(rest_.front())) {
            rest_.remove_prefix(1);
        }
        return rest_.size() != before;
    }

private:
    [[gnu::noinline, gnu::cold]] bool looselyEaten(Text expected) {
        for (; !expected.empty(); expected.remove_prefix(1)) {
            if (expected.front() == ' ') {
                if (!blanks()) {
                    return false;
                }
            } else if (rest_.starts_with(expected.front())) {
                rest_.remove_prefix(1);
            } else {
                return false;
            }
        }
        return true;
    }

    Text rest_;
};

constexpr Text headStart = "kernel: [";

// What is before `comm="`, when the text ends as a record does.
bool tailEaten(Text text, Orvo::Regex::Groups& groups, Text& before) {
    BackwardEater tail(text);
    const bool eaten = tail.digits(groups[12]) && tail.phrase(" errno=") &&
                       tail.digits(groups[11]) && tail.phrase(" res=") && tail.digits(groups[10]) &&
                       tail.phrase("\" ino=") && tail.quoted(groups[9]) && tail.phrase("\" dev=") &&
                       tail.quoted(groups[8]) && tail.phrase("\" name=") &&
                       tail.quoted(groups[7]) && tail.phrase("comm=");
    before = tail.rest();
    return eaten;
}

// Mostly a line begins with its head.
std::size_t firstHead(Text text) {
    return text.starts_with(headStart) ? 0 : text.find(headStart);
}

// `text` starts with headStart; `after` is what follows `cause=`.
bool headEaten(Text text, Orvo::Regex::Groups& groups, Text& after) {
    Text ignored;
    ForwardEater head(text.substr(headStart.size()));
    head.blanks();
    if (!head.run<ByteRuns::DigitsAndPoints>(ignored) || !head.phrase("][")) {
        return false;
    }
    head.blanks();
    const bool eaten = head.phrase("T") && head.digits(ignored) &&
                       head.phrase("] audit: type=1800 audit(") &&
                       head.run<ByteRuns::DigitsPointsAndColons>(groups[1]) &&
                       head.phrase("): pid=") && head.digits(groups[2]) && //
                       head.phrase(" uid=") && head.digits(groups[3]) && head.phrase(" auid=") &&
                       head.digits(groups[4]) && head.phrase(" ses=") && head.digits(groups[5]) &&
                       head.phrase(" op=appraise_data cause=");
    after = head.rest();
    return eaten;
}

// What may stand between `cause=` and `comm="`, given the text before `comm="`: a cause without
// line ends, then blanks. Of the blanks one is enough, the others belong to the cause; but a line
// end among them ends it.
class CauseRule {
public:
    explicit CauseRule(Text before)
        : beforeBlanks_(before.substr(0, before.size() - trailingBlanks(before))) {
        const Text blanks = before.substr(beforeBlanks_.size());
        if (!blanks.empty()) {
            const auto* const lineEnd = std::ranges::find_if(blanks, isLineEnd);
            stop_ = std::min(static_cast<std::size_t>(lineEnd - before.begin()), before.size() - 1);
        }
    }

    // Whether a cause may start there; `length` is then that of the longest one. Starts are asked
    // for from left to right.
    bool cause(std::size_t start, std::size_t& length) {
        if (start >= stop_ || start < earliest_) {
            return false;
        }
        if (start < beforeBlanks_.size()) {
            const Text words = beforeBlanks_.substr(start);
            const std::size_t line = ByteRuns::trailing<ByteRuns::NoLineEnds>(words);
            if (line != words.size()) {
                earliest_ = beforeBlanks_.size() - line;
                return false;
            }
        }
        length = stop_ - start;
        return true;
    }

private:
    Text beforeBlanks_;
    std::size_t stop_ = 0;     // the longest cause ends there; 0 without blanks
    std::size_t earliest_ = 0; // behind the last line end before the blanks, once one was met
};

} // namespace

bool appraisalSearch(Text text, Orvo::Regex::Groups& groups) {
    groups.resize(13);
    Text before;
    if (!tailEaten(text, groups, before)) {
        return false;
    }
    CauseRule rule(before);
    for (std::size_t start = firstHead(before); start != Text::npos;
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
