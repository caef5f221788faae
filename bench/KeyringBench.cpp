// SPDX-License-Identifier: Apache-2.0
// vestrel-bench-keyring [--rounds N] [--most N] [--tool-files N] [--part NAME...] [--json FILE]
// [--ca CERTIFICATE --key KEY]: what it costs to keep a keyring in step with a directory. Needs
// root. Where the kernel has ".ima", the authority must be one that it trusts; elsewhere a plain
// keyring stands for it.
#include "bench/Follower.h"
#include "bench/KeyringRoads.h"
#include "bench/PrivateSystem.h"
#include "bench/Rings.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace {

using namespace Vestrel;

// In the order in which they are measured.
const std::vector<std::string> allParts{"start-up",      "tools", "change", "latency",
                                        "notifications", "burst", "memory", "rest"};

struct Options {
    unsigned rounds = 9;
    std::size_t most = 5000;
    std::size_t toolFiles = 1000;
    std::string json;
    std::string authority;
    std::string key;
    std::vector<std::string> parts = allParts;
    std::string follow; // in a process of a Follower
};

Tests::CertificateAuthority authority(const Options& options) {
    return options.authority.empty()
               ? Tests::CertificateAuthority::generate()
               : Tests::CertificateAuthority::load(options.authority, options.key);
}

std::vector<std::size_t> upTo(std::size_t most) {
    std::vector<std::size_t> counts;
    for (const std::size_t count : {10U, 100U, 1000U, 5000U}) {
        if (count <= most) {
            counts.push_back(count);
        }
    }
    return counts;
}

void measure(const std::string& part, Bench::Report& report, Bench::Certificates& certificates,
             const Options& options) {
    const auto counts = upTo(options.most);
    const std::size_t many = std::min<std::size_t>(options.most, 1000);
    if (part == "start-up") {
        Bench::measureStartUps(report, certificates, counts, options.rounds);
    } else if (part == "tools") {
        Bench::measureTools(report, certificates, many, std::min(options.toolFiles, many), 3);
    } else if (part == "change") {
        Bench::measureChanges(report, certificates, counts, 50);
    } else if (part == "latency") {
        Bench::measureLatency(report, certificates, 200);
    } else if (part == "notifications") {
        Bench::measureNotifications(report, certificates, 50, 20000);
    } else if (part == "burst") {
        for (const std::size_t count : {many / 5, many, 2 * options.most}) {
            Bench::measureBurst(report, certificates, count);
        }
    } else if (part == "memory") {
        Bench::measureMemory(report, certificates, many);
    } else if (part == "rest") {
        Bench::measureRest(report, certificates, many);
    }
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Measures the keyring road.", "vestrel-bench-keyring");
    app.add_option("--rounds", options.rounds)->check(CLI::PositiveNumber)->take_last();
    app.add_option("--most", options.most, "certificates at most")
        ->check(CLI::PositiveNumber)
        ->take_last();
    app.add_option("--tool-files", options.toolFiles, "for the loops of tools at most")
        ->check(CLI::PositiveNumber)
        ->take_last();
    app.add_option("--part", options.parts, "only these")->check(CLI::IsMember(allParts));
    app.add_option("--json", options.json);
    CLI::Option* const ca = app.add_option("--ca", options.authority);
    app.add_option("--key", options.key)->needs(ca);
    app.add_option("--follow", options.follow)->group(""); // not for users
    CLI11_PARSE(app, argc, argv);
    if (!options.follow.empty()) {
        Bench::Follower::follow(options.follow);
    }

    Bench::ownDirectories();
    Bench::Report report;
    std::printf("keyring: %s\n",
                Bench::kernelHasImaKeyring() ? "the kernel's .ima" : "a plain one");
    Bench::Certificates certificates(authority(options));
    for (const std::string& part : options.parts) {
        measure(part, report, certificates, options);
    }
    if (!options.json.empty() && !report.write(options.json)) {
        std::fprintf(stderr, "cannot write %s\n", options.json.c_str());
        return 1;
    }
    return 0;
}
