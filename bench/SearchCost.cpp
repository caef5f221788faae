// SPDX-License-Identifier: Apache-2.0
// Worst times of the search for the appraisal record.
#include "bench/SearchCost.h"

#include "syslog/AppraisalPattern.h"
#include "tests/fuzz/AppraisalLines.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Bench {

namespace {

using Tests::longestHostileLine;
using Tests::realTail;

// Below this a ratio says more about the clock than about the search.
constexpr double shortestCompared = 1.0;
constexpr std::size_t worstKept = 200;
constexpr std::uint64_t seed = 20;

// In microseconds: the least of the repetitions, which is what the search costs undisturbed.
double timeOf(std::string_view line, unsigned repetitions) {
    using Clock = std::chrono::steady_clock;
    double least = std::numeric_limits<double>::max();
    Orvo::Regex::Groups groups;
    for (unsigned i = 0; i < repetitions; ++i) {
        const auto start = Clock::now();
        [[maybe_unused]] volatile bool found = appraisalSearch(line, groups);
        const std::chrono::duration<double, std::micro> spent = Clock::now() - start;
        least = std::min(least, spent.count());
    }
    return least;
}

// The median of turns, since the pace of a machine changes with what else runs on it.
double onDoubling(std::string_view half, std::string_view full) {
    std::vector<double> ratios;
    for (unsigned turn = 0; turn < 200; ++turn) {
        const double ofHalf = timeOf(half, 2);
        ratios.push_back(timeOf(full, 2) / ofHalf);
    }
    return timeOf(full, 50) < shortestCompared ? 0 : spreadOf(ratios).median;
}

bool matches(std::string_view line) {
    Orvo::Regex::Groups groups;
    return appraisalSearch(line, groups);
}

struct Worst {
    double time = 0;
    double doubling = 0;
    std::string name;
    std::string doublingName;
};

Worst worstKind() {
    Worst worst;
    for (const Tests::HostileKind& kind : Tests::hostileKinds()) {
        const std::string line = kind.line(longestHostileLine);
        const double time = timeOf(line, 50);
        const double doubling = onDoubling(kind.line(longestHostileLine / 2), line);
        if (time > worst.time) {
            worst.time = time;
            worst.name = kind.name;
        }
        if (doubling > worst.doubling) {
            worst.doubling = doubling;
            worst.doublingName = kind.name;
        }
    }
    return worst;
}

struct Tiling {
    double time;
    std::string half; // twice, before the tail, it is the line
    std::string tail;

    std::string line() const { return half + half + tail; }
};

// One in four ends as it happens; the others end as a record does, since nothing is searched before
// anything else.
Tiling tiling(Tests::AppraisalLines& lines, std::size_t index) {
    const std::string tail(index % 4 == 0 ? "" : realTail);
    return {0, lines.tiling((longestHostileLine - tail.size()) / 2), tail};
}

std::vector<Tiling> worstTilings(std::size_t count) {
    const auto isSlower = [](const Tiling& a, const Tiling& b) { return a.time > b.time; };
    Tests::AppraisalLines lines(seed);
    std::vector<Tiling> worst; // a heap with the fastest on top
    for (std::size_t i = 0; i < count; ++i) {
        Tiling each = tiling(lines, i);
        each.time = timeOf(each.line(), 3);
        if (worst.size() == worstKept && each.time <= worst.front().time) {
            continue;
        }
        worst.push_back(std::move(each));
        std::ranges::push_heap(worst, isSlower);
        if (worst.size() > worstKept) {
            std::ranges::pop_heap(worst, isSlower);
            worst.pop_back();
        }
    }
    return worst;
}

} // namespace

void measureSearches(Report& report, std::size_t tilings) {
    report.title("searches of " + std::to_string(longestHostileLine) + " bytes");
    report.figure("search: a record", timeOf(Tests::realLine, 1000), "us");
    const Worst kind = worstKind();
    report.atMost("search: worst hostile kind (" + kind.name + ")", kind.time, 100, "us");
    report.atMost("search: worst doubling (" + kind.doublingName + ")", kind.doubling, 2.5,
                  "times");
    double time = 0;
    double doubling = 0;
    for (const Tiling& each : worstTilings(tilings)) {
        time = std::max(time, timeOf(each.line(), 50));
        // A match ends the search, and may stand at the front of a line and not of the doubled one.
        if (const std::string half = each.half + each.tail;
            !matches(half) && !matches(each.line())) {
            doubling = std::max(doubling, onDoubling(half, each.line()));
        }
    }
    const std::string of = "search: worst of " + std::to_string(tilings) + " tilings";
    report.atMost(of, time, 100, "us");
    report.atMost(of + ", doubling one that does not match", doubling, 2.5, "times");
}

} // namespace Vestrel::Bench
