// SPDX-License-Identifier: Apache-2.0
// Random lines that know the pattern of the appraisal record.
#include "tests/fuzz/AppraisalLines.h"

#include <algorithm>
#include <array>

namespace Vestrel::Tests {

namespace {

constexpr std::array<std::string_view, 37> pieces{"kernel: [", "2.647055",
                                                  "]",         "[",
                                                  "T10",       "T",
                                                  "audit:",    "type=1800",
                                                  "audit(",    "1795.572:11",
                                                  "):",        "pid=",
                                                  "uid=0",     "auid=7",
                                                  "ses=1",     "op=appraise_data",
                                                  "cause=",    "missing-hash",
                                                  "comm=\"",   "\"",
                                                  "name=\"",   "dev=\"",
                                                  "ino=",      "res=0",
                                                  "errno=0",   "errno=",
                                                  "0",         "42",
                                                  " ",         "  ",
                                                  "\n",        "\r",
                                                  "\t",        "\v",
                                                  "\x85",      "x",
                                                  "."};

// Whole stretches, so that a tiling gets further than its first fields.
constexpr std::array<std::string_view, 6> stretches{realHead,
                                                    realTail,
                                                    realLine,
                                                    realHead.substr(0, realHead.find("type")),
                                                    realHead.substr(0, realHead.find("op=")),
                                                    realTail.substr(realTail.find("dev="))};

constexpr std::string_view blankBytes = " \t\n\v\f\r";
constexpr std::size_t longestLine = 1024;

} // namespace

std::string_view AppraisalLines::oneOf(std::initializer_list<std::string_view> texts) {
    return texts.begin()[below(texts.size())];
}

void AppraisalLines::junk() {
    switch (below(4)) {
    case 0:
        line_ += byte();
        break;
    case 1:
        line_ += stretches[below(stretches.size())];
        break;
    default:
        line_ += pieces[below(pieces.size())];
    }
}

void AppraisalLines::literal(std::string_view text) {
    if (damage_ == 0 || !oneIn(damage_)) {
        line_ += text;
        return;
    }
    switch (below(4)) {
    case 0:
        line_ += text.substr(below(text.size()));
        break;
    case 1:
        line_ += text;
        line_.back() = byte();
        break;
    case 2:
        junk();
        break;
    default:
        line_ += text;
        junk();
    }
}

void AppraisalLines::blanks(bool atLeastOne) {
    if (damage_ != 0 && oneIn(damage_)) {
        line_ += oneOf({"", "\x85", "\xa0", "x", " \x85 "});
        return;
    }
    if (!oneIn(4)) {
        line_ += ' ';
        return;
    }
    const std::size_t count = oneIn(20) ? below(60) : below(4);
    for (std::size_t i = atLeastOne ? 0 : 1; i <= count; ++i) {
        line_ += oneIn(2) ? ' ' : blankBytes[below(blankBytes.size())];
    }
}

void AppraisalLines::digits(std::string_view alsoAllowed) {
    const std::string allowed = "0123456789" + std::string(alsoAllowed);
    const std::size_t count = below(6) + (damage_ != 0 && oneIn(damage_) ? 0 : 1);
    for (std::size_t i = 0; i < count; ++i) {
        line_ += allowed[below(allowed.size())];
    }
}

void AppraisalLines::number(std::string_view name) {
    literal(name);
    digits();
}

// What stands in a quoted value: a word, words, another record, any bytes; seldom a quote.
void AppraisalLines::value() {
    switch (below(8)) {
    case 0:
        line_ += oneOf({realHead, "kernel: [", " cause=x ", "comm=", "\n", "errno=0"});
        break;
    case 1:
        for (std::size_t i = below(12); i != 0; --i) {
            line_ += byte();
        }
        break;
    case 2:
        blanks(true);
        line_ += "b";
        break;
    default:
        line_ += oneOf({"vmt", "/usr/bin/tool", "a b", "x", "missing-hash"});
    }
}

void AppraisalLines::quoted(std::string_view name) {
    literal(name);
    if (damage_ == 0 || !oneIn(damage_)) {
        value();
    }
    literal("\"");
}

void AppraisalLines::head() {
    literal("kernel: [");
    blanks(false);
    digits(".");
    literal("][");
    blanks(false);
    number("T");
    literal("]");
    blanks(true);
    for (const std::string_view text : {"audit:", "type=1800"}) {
        literal(text);
        blanks(true);
    }
    literal("audit(");
    digits(".:");
    literal("):");
    for (const std::string_view name : {"pid=", "uid=", "auid=", "ses="}) {
        blanks(true);
        number(name);
    }
    blanks(true);
    literal("op=appraise_data");
    blanks(true);
    literal("cause=");
}

void AppraisalLines::cause() {
    switch (below(6)) {
    case 0:
        break;
    case 1:
        junk();
        break;
    case 2:
        blanks(true);
        break;
    case 3:
        value();
        blanks(false);
        value();
        break;
    default:
        line_ += oneOf({"missing-hash", "invalid-signature", "a b  c", "x"});
    }
    if (oneIn(8)) {
        line_ += oneOf({"\n", "\r", "\r\n", "\n ", " \n", "\"", " cause=y"});
    }
}

void AppraisalLines::tail() {
    quoted("comm=\"");
    blanks(true);
    quoted("name=\"");
    blanks(true);
    quoted("dev=\"");
    for (const std::string_view name : {"ino=", "res=", "errno="}) {
        blanks(true);
        number(name);
    }
}

void AppraisalLines::structured() {
    damage_ = std::array<std::size_t, 6>{0, 0, 0, 200, 40, 8}[below(6)];
    for (std::size_t i = oneIn(3) ? below(4) : 0; i != 0; --i) {
        junk();
    }
    const std::size_t heads = oneIn(2) ? 1 : below(4);
    for (std::size_t i = 0; i < heads; ++i) {
        head();
        cause();
    }
    const std::size_t tails = oneIn(4) ? below(3) : 1;
    for (std::size_t i = 0; i < tails; ++i) {
        blanks(true);
        tail();
    }
    if (oneIn(20)) {
        line_ += oneOf({"\n", " ", "\r", "x", "0", "\""});
    }
}

void AppraisalLines::mutateOnce(std::size_t place) {
    const std::size_t other = below(line_.size());
    switch (below(6)) {
    case 0:
        line_[place] = byte();
        break;
    case 1:
        line_.erase(place, 1 + below(4));
        break;
    case 2:
        line_.insert(place, pieces[below(pieces.size())]);
        break;
    case 3:
        line_.insert(place, 1, byte());
        break;
    case 4:
        line_.insert(place, line_.substr(other, below(60)));
        break;
    default:
        std::swap(line_[place], line_[other]);
    }
}

void AppraisalLines::mutate() {
    for (std::size_t i = oneIn(2) ? 0 : 1 + below(3); i != 0 && !line_.empty(); --i) {
        mutateOnce(below(line_.size()));
    }
    if (oneIn(50)) {
        line_.resize(below(line_.size() + 1));
    }
}

std::string AppraisalLines::next() {
    line_.clear();
    if (oneIn(4)) {
        line_ = ordinaryLines()[below(ordinaryLines().size())];
    } else if (oneIn(8)) {
        line_ = tiling(below(600));
    } else {
        structured();
    }
    mutate();
    line_.resize(std::min(line_.size(), longestLine));
    return line_;
}

std::string AppraisalLines::tiling(std::size_t size) {
    std::string text;
    const std::size_t stretchOneIn = 2 + below(40);
    while (text.size() < size) {
        const std::string_view piece =
            oneIn(stretchOneIn) ? stretches[below(stretches.size())] : pieces[below(pieces.size())];
        // Repetitions bring out what single pieces do not.
        for (std::size_t i = oneIn(10) ? below(40) : 1; i != 0; --i) {
            text += piece;
        }
    }
    // Cut in front, so that whole tails stay at the end.
    return text.substr(text.size() - size);
}

} // namespace Vestrel::Tests
