// SPDX-License-Identifier: Apache-2.0
// Start-up of the keyring state machine, beside other ways of loading the same files.
#include "bench/Clock.h"
#include "bench/KeyringRoads.h"
#include "bench/Rings.h"
#include "keyring/IntegrityKeyringSm.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace Vestrel::Bench {

namespace {

void demandKeys(key_serial_t ring, std::size_t count, const std::string& road) {
    if (const std::size_t found = keysIn(ring); found != count) {
        std::fprintf(stderr, "%s: %zu keys in the keyring instead of %zu\n", road.c_str(), found,
                     count);
        std::exit(1);
    }
}

double startUp(std::size_t count) {
    const key_serial_t ring = freshRing();
    const auto keyrings = Orvo::makeNode<IntegrityKeyringColl>();
    const ProcessorClock clock;
    const auto sm = integrityKeyringSmFactory(keyrings);
    const double spent = clock.microseconds();
    demandKeys(ring, count, "start-up");
    return spent;
}

double bareLoop(std::size_t count) {
    const key_serial_t ring = freshRing();
    const ProcessorClock clock;
    for (std::size_t i = 0; i < count; ++i) {
        addBarely(certificatePath(imaDirectory, i), ring);
    }
    const double spent = clock.microseconds();
    demandKeys(ring, count, "bare loop");
    return spent;
}

double shellLoop(const std::string& perFile, std::size_t count) {
    const key_serial_t ring = freshRing();
    const std::string command = "for i in $(seq 0 " + std::to_string(count - 1) +
                                "); do f=" + imaDirectory + "/$i.der; " + perFile +
                                "; done >/dev/null 2>&1";
    setenv("ring", std::to_string(ring).c_str(), 1);
    const ChildrenClock clock;
    [[maybe_unused]] const int status = std::system(command.c_str());
    const double spent = clock.microseconds();
    demandKeys(ring, count, perFile);
    return spent;
}

std::vector<double> quotients(const std::vector<double>& a, const std::vector<double>& b) {
    std::vector<double> values;
    for (std::size_t i = 0; i < a.size(); ++i) {
        values.push_back(a[i] / b[i]);
    }
    return values;
}

std::vector<double> perOne(std::vector<double> values, std::size_t count) {
    for (double& value : values) {
        value /= static_cast<double>(count);
    }
    return values;
}

bool isInstalled(const std::string& tool) {
    return std::system(("command -v " + tool + " >/dev/null").c_str()) == 0;
}

struct Tool {
    std::string name;
    std::string perFile;
    double leastFaster;
};

void measureTool(Report& report, const Tool& tool, std::size_t count, std::size_t toolFiles,
                 unsigned rounds) {
    std::vector<double> theirs;
    std::vector<double> ours;
    for (unsigned round = 0; round < rounds; ++round) {
        theirs.push_back(shellLoop(tool.perFile, toolFiles));
        ours.push_back(startUp(count));
    }
    theirs = perOne(theirs, toolFiles);
    ours = perOne(ours, count);
    const std::string with = "start-up with " + std::to_string(count) + ": ";
    const std::string loop = tool.name + " loop of " + std::to_string(toolFiles);
    report.figure(with + loop, spreadOf(theirs), "us a certificate");
    report.atLeast(with + "faster than a " + loop, spreadOf(quotients(theirs, ours)),
                   tool.leastFaster);
}

} // namespace

void measureStartUps(Report& report, Certificates& certificates,
                     const std::vector<std::size_t>& counts, unsigned rounds) {
    report.title("start-up, processor time");
    std::vector<double> ofFew;
    for (const std::size_t count : counts) {
        certificates.write(imaDirectory, count);
        std::vector<double> ours;
        std::vector<double> bare;
        std::vector<double> searches;
        startUp(count); // warms up
        for (unsigned round = 0; round < rounds; ++round) {
            bare.push_back(bareLoop(count));
            const double before = microsecondsOfSearches();
            ours.push_back(startUp(count));
            searches.push_back(microsecondsOfSearches() - before);
        }
        const std::string with = "start-up with " + std::to_string(count);
        report.figure(with + ": bare loop", spreadOf(perOne(bare, count)), "us a certificate");
        report.figure(with + ": state machine", spreadOf(perOne(ours, count)), "us a certificate");
        report.figure(with + ": finding the keyrings", spreadOf(perOne(searches, count)),
                      "us a certificate");
        const Spread ratio = spreadOf(quotients(ours, bare));
        if (count == 1000) {
            report.atMost(with + ": of bare loop", ratio, 2.5, "times");
        } else {
            report.figure(with + ": of bare loop", ratio, "times");
        }
        if (count == 100) {
            ofFew = perOne(ours, count);
        } else if (count == 5000 && !ofFew.empty()) {
            report.atMost("start-up: a certificate of 5000 against one of 100",
                          spreadOf(quotients(perOne(ours, count), ofFew)), 1.5, "times");
        }
    }
}

void measureTools(Report& report, Certificates& certificates, std::size_t count,
                  std::size_t toolFiles, unsigned rounds) {
    report.title("start-up against tools, processor time");
    certificates.write(imaDirectory, count);
    for (const Tool& tool : {Tool{"keyctl", "keyctl padd asymmetric '' $ring <$f", 15},
                             Tool{"evmctl", "evmctl import $f $ring", 60}}) {
        if (isInstalled(tool.name)) {
            measureTool(report, tool, count, toolFiles, rounds);
        } else {
            std::printf("%s is not installed\n", tool.name.c_str());
        }
    }
}

} // namespace Vestrel::Bench
