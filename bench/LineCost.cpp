// SPDX-License-Identifier: Apache-2.0
// Runs vestrel-bench-drain, which stands beside the program, in several ways.
#include "bench/LineCost.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace Vestrel::Bench {

namespace {

std::string sibling(const std::string& name) {
    return std::filesystem::read_symlink("/proc/self/exe").replace_filename(name);
}

std::string outputOf(const std::string& command) {
    FILE* const pipe = popen(command.c_str(), "r");
    std::string output;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
        output += static_cast<char>(c);
    }
    if (pclose(pipe) != 0) {
        std::fprintf(stderr, "failed: %s\n%s", command.c_str(), output.c_str());
        std::exit(1);
    }
    return output;
}

// While draining so many lines; what is there only once is in it.
double instructionsOf(const std::string& kind, unsigned lines) {
    const std::string output = outputOf(
        "valgrind --tool=callgrind --callgrind-out-file=/dev/null --log-fd=1 "
        "--toggle-collect='Vestrel::IntegritySyslogSm::handleLog()' " +
        sibling("vestrel-bench-drain") + " " + kind + " " + std::to_string(lines) + " 2>/dev/null");
    constexpr std::string_view label = "Collected :";
    const std::size_t at = output.find(label);
    if (at == std::string::npos) {
        std::fprintf(stderr, "callgrind collected nothing:\n%s", output.c_str());
        std::exit(1);
    }
    return std::strtod(output.c_str() + at + label.size(), nullptr);
}

double instructionsOfALine(const std::string& kind) {
    constexpr unsigned lines = 2000;
    return (instructionsOf(kind, 2 * lines) - instructionsOf(kind, lines)) / lines;
}

double nanosecondsOfALine(const std::string& program) {
    return std::strtod(outputOf(sibling(program) + " other 20000").c_str(), nullptr);
}

} // namespace

void measureInstructions(Report& report) {
    report.title("instructions of the state machine's own code");
    if (std::system("command -v valgrind >/dev/null") != 0) {
        std::puts("valgrind is not installed");
        return;
    }
    report.atMost("instructions: a line that does not match", instructionsOfALine("other"), 800,
                  "instructions");
    report.figure("instructions: a record, written", instructionsOfALine("record"), "instructions");
}

void measureTraces(Report& report, unsigned rounds) {
    report.title("traces, lines that do not match");
    std::vector<double> off;
    std::vector<double> out;
    std::vector<double> ratios;
    for (unsigned round = 0; round < rounds; ++round) {
        off.push_back(nanosecondsOfALine("vestrel-bench-drain"));
        out.push_back(nanosecondsOfALine("vestrel-bench-drain-untraced"));
        ratios.push_back(off.back() / out.back());
    }
    report.figure("traces: off", spreadOf(off), "ns a line");
    report.figure("traces: compiled out", spreadOf(out), "ns a line");
    report.atMost("traces: off against compiled out", spreadOf(ratios), 1.03, "times");
}

} // namespace Vestrel::Bench
