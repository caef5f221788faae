// SPDX-License-Identifier: Apache-2.0
// Printing of measured figures.
#include "bench/Report.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <utility>

namespace Vestrel::Bench {

namespace {

std::string shown(double value) {
    char text[32];
    std::snprintf(text, sizeof text, value < 10 ? "%.3f" : "%.1f", value);
    return text;
}

} // namespace

Spread spreadOf(std::vector<double> values) {
    std::ranges::sort(values);
    return {values[values.size() / 2], values.front(), values.back()};
}

void Report::title(const std::string& text) const {
    std::printf("\n%s\n%-58s %10s %10s %10s  %s\n", text.c_str(), "", "median", "least", "most",
                "goal");
}

void Report::add(Entry entry) {
    const std::string verdict =
        entry.goal.empty() ? "" : entry.goal + (entry.reached ? ", reached" : ", MISSED");
    std::printf("%-58s %10s %10s %10s  %s\n", (entry.name + ", " + entry.unit).c_str(),
                shown(entry.value.median).c_str(), shown(entry.value.least).c_str(),
                shown(entry.value.most).c_str(), verdict.c_str());
    std::fflush(stdout);
    entries_.push_back(std::move(entry));
}

void Report::figure(const std::string& name, const Spread& value, const std::string& unit) {
    add({name, value, unit, "", true});
}

void Report::figure(const std::string& name, double value, const std::string& unit) {
    figure(name, Spread{value, value, value}, unit);
}

void Report::atLeast(const std::string& name, const Spread& value, double goal) {
    add({name, value, "ratio", ">= " + shown(goal), value.median >= goal});
}

void Report::atMost(const std::string& name, const Spread& value, double goal,
                    const std::string& unit) {
    add({name, value, unit, "< " + shown(goal), value.median < goal});
}

void Report::atMost(const std::string& name, double value, double goal, const std::string& unit) {
    atMost(name, Spread{value, value, value}, goal, unit);
}

bool Report::write(const std::string& path) const {
    std::ofstream out(path);
    const char* separator = "{\n";
    for (const Entry& entry : entries_) {
        out << separator << "  \"" << entry.name << "\": {\"unit\": \"" << entry.unit
            << "\", \"median\": " << entry.value.median << ", \"least\": " << entry.value.least
            << ", \"most\": " << entry.value.most;
        if (!entry.goal.empty()) {
            out << ", \"goal\": \"" << entry.goal
                << "\", \"reached\": " << (entry.reached ? "true" : "false");
        }
        out << "}";
        separator = ",\n";
    }
    out << "\n}\n";
    out.close();
    return !out.fail();
}

} // namespace Vestrel::Bench
