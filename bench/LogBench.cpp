// SPDX-License-Identifier: Apache-2.0
// vestrel-bench-log [--rounds N] [--tilings N] [--json FILE]: what a kernel line costs on its way
// from the socket to the log, and what the worst lines cost. Needs root.
#include "bench/LineCost.h"
#include "bench/Peer.h"
#include "bench/PrivateSystem.h"
#include "bench/Report.h"
#include "bench/Roads.h"
#include "bench/SearchCost.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

struct Options {
    unsigned rounds = 15;
    std::size_t tilings = 250000;
    std::string json;
};

[[noreturn]] void usage() {
    std::fputs("usage: vestrel-bench-log [--rounds N] [--tilings N] [--json FILE]\n", stderr);
    std::exit(2);
}

unsigned long number(const char* text) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (*end != '\0' || value == 0) {
        usage();
    }
    return value;
}

Options parsed(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string_view name = argv[i];
        if (i + 1 == argc) {
            usage();
        }
        if (name == "--rounds") {
            options.rounds = static_cast<unsigned>(number(argv[i + 1]));
        } else if (name == "--tilings") {
            options.tilings = number(argv[i + 1]);
        } else if (name == "--json") {
            options.json = argv[i + 1];
        } else {
            usage();
        }
    }
    return options;
}

} // namespace

int main(int argc, char** argv) {
    using namespace Vestrel::Bench;
    if (argc == 2 && std::string_view(argv[1]) == "--serve-lines") {
        serveLines(); // in a process of measurePeer()
    }
    const Options options = parsed(argc, argv);
    ownDirectories();
    longQueues();
    Report report;
    compareRoads(report, options.rounds);
    measureSearches(report, options.tilings);
    measureInstructions(report);
    measureTraces(report, options.rounds);
    measurePeer(report, 100000, std::max(options.rounds / 3, 3U));
    if (!options.json.empty() && !report.write(options.json)) {
        std::fprintf(stderr, "cannot write %s\n", options.json.c_str());
        return 1;
    }
    return 0;
}
