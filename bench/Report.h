// SPDX-License-Identifier: Apache-2.0
// Measured figures, as a table for people and as JSON for programs.
#pragma once

#include <string>
#include <vector>

namespace Vestrel::Bench {

// Of several rounds of the same work.
struct Spread {
    double median = 0;
    double least = 0;
    double most = 0;
};

Spread spreadOf(std::vector<double> values);

class Report {
public:
    // Prints a line and keeps the figure under its name.
    void figure(const std::string& name, const Spread& value, const std::string& unit);
    void figure(const std::string& name, double value, const std::string& unit);

    // The same, with the goal it is to reach: at least (or at most) that.
    void atLeast(const std::string& name, const Spread& value, double goal);
    void atMost(const std::string& name, const Spread& value, double goal, const std::string& unit);
    void atMost(const std::string& name, double value, double goal, const std::string& unit);

    void title(const std::string& text) const;

    // False when the file cannot be written.
    bool write(const std::string& path) const;

private:
    struct Entry {
        std::string name;
        Spread value;
        std::string unit;
        std::string goal; // empty: none
        bool reached = true;
    };

    void add(Entry entry);

    std::vector<Entry> entries_;
};

} // namespace Vestrel::Bench
