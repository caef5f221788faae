// SPDX-License-Identifier: Apache-2.0
// Changes of a directory that is being followed.
#include "bench/Clock.h"
#include "bench/Follower.h"
#include "bench/KeyringRoads.h"
#include "bench/Rings.h"
#include "keyring/IntegrityKeyringSm.h"
#include "platform/zell/ActivityManager.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace Vestrel::Bench {

namespace {

constexpr double patience = 60e6; // in microseconds

const std::string elsewhere = std::string(imaDirectory) + "-new"; // of the same file system

// Spins, since a sleep would be part of the answer.
void awaitKeys(key_serial_t ring, std::size_t count) {
    const WallClock clock;
    while (keysIn(ring) != count) {
        if (clock.microseconds() > patience) {
            std::fprintf(stderr, "%zu keys instead of %zu\n", keysIn(ring), count);
            std::exit(1);
        }
    }
}

void moveIn(std::size_t number) {
    std::filesystem::rename(certificatePath(elsewhere, number),
                            certificatePath(imaDirectory, number));
}

double oneChange(Zell::ActivityManager& loop, std::size_t number) {
    const ProcessorClock clock;
    moveIn(number);
    loop.dispatch();
    return clock.microseconds();
}

// `first` keys on record, then so many changes.
std::vector<double> changes(Certificates& certificates, std::size_t first, unsigned count) {
    certificates.write(imaDirectory, first);
    std::filesystem::remove_all(elsewhere);
    std::filesystem::create_directories(elsewhere);
    const auto& all = certificates.first(first + count);
    for (std::size_t i = first; i < first + count; ++i) {
        writeFile(certificatePath(elsewhere, i), all[i]);
    }
    const key_serial_t ring = freshRing();
    const auto loop = Zell::ActivityFacility::activityManager();
    const auto sm = integrityKeyringSmFactory(Orvo::makeNode<IntegrityKeyringColl>());
    loop->dispatch();
    std::vector<double> spent;
    for (std::size_t i = first; i < first + count; ++i) {
        spent.push_back(oneChange(*loop, i));
        awaitKeys(ring, i + 1);
    }
    return spent;
}

double latency(key_serial_t ring, std::size_t number) {
    const std::size_t before = keysIn(ring);
    const WallClock clock;
    moveIn(number);
    awaitKeys(ring, before + 1);
    return clock.microseconds();
}

std::vector<double> latencies(Certificates& certificates, Follower::Kind kind, unsigned count) {
    certificates.write(imaDirectory, 0);
    certificates.write(elsewhere, count);
    const key_serial_t ring = freshRing();
    const Follower follower(kind, ring);
    std::vector<double> spent;
    for (unsigned i = 0; i < count; ++i) {
        spent.push_back(latency(ring, i));
        follower.process().awaitRest();
    }
    return spent;
}

} // namespace

void measureChanges(Report& report, Certificates& certificates,
                    const std::vector<std::size_t>& counts, unsigned changeCount) {
    report.title("one file moved in, processor time");
    double ofFew = 0;
    for (const std::size_t count : counts) {
        const Spread spent = spreadOf(changes(certificates, count, changeCount));
        report.figure("change with " + std::to_string(count) + " keys on record", spent, "us");
        if (ofFew == 0) {
            ofFew = spent.median;
        } else if (count == 5000) {
            report.atMost("change: with 5000 on record against with " +
                              std::to_string(counts.front()),
                          spent.median / ofFew, 4, "times");
        }
    }
}

void measureLatency(Report& report, Certificates& certificates, unsigned changeCount) {
    report.title("from rename to key, wall clock");
    const Spread bare = spreadOf(latencies(certificates, Follower::Kind::bare, changeCount));
    const Spread ours =
        spreadOf(latencies(certificates, Follower::Kind::stateMachine, changeCount));
    report.figure("latency: bare inotify and add_key", bare, "us");
    report.figure("latency: state machine", ours, "us");
    report.atMost("latency: of bare", ours.median / bare.median, 2, "times");
}

void measureBurst(Report& report, Certificates& certificates, std::size_t count) {
    const std::string burst = "burst of " + std::to_string(count);
    report.title(burst + " files");
    certificates.write(imaDirectory, 0);
    certificates.write(elsewhere, count);
    const key_serial_t ring = freshRing();
    const Follower follower(Follower::Kind::stateMachine, ring);
    const WallClock clock;
    for (std::size_t i = 0; i < count; ++i) {
        moveIn(i);
    }
    const double sent = clock.microseconds();
    awaitKeys(ring, count); // one lost event, and this is never reached
    report.figure(burst + ": moved in", sent / static_cast<double>(count), "us a file");
    report.figure(burst + ": all in the keyring", clock.microseconds() / static_cast<double>(count),
                  "us a file");
}

void measureRest(Report& report, Certificates& certificates, std::size_t count) {
    report.title("a minute at rest with " + std::to_string(count) + " keys");
    certificates.write(imaDirectory, count);
    const Follower follower(Follower::Kind::stateMachine, freshRing());
    const double wakeUps = follower.process().wakeUps();
    const double spent = follower.process().processorNanoseconds();
    std::this_thread::sleep_for(std::chrono::minutes(1));
    report.figure("rest: wake-ups", follower.process().wakeUps() - wakeUps, "in a minute");
    report.figure("rest: processor time", follower.process().processorNanoseconds() - spent,
                  "ns in a minute");
}

void measureMemory(Report& report, Certificates& certificates, std::size_t count) {
    report.title("resident memory");
    certificates.write(imaDirectory, 0);
    freshRing();
    const double empty =
        Follower(Follower::Kind::stateMachine, freshRing()).process().residentBytes();
    certificates.write(imaDirectory, count);
    const Follower follower(Follower::Kind::stateMachine, freshRing());
    const double full = follower.process().residentBytes();
    report.figure("memory: no keys", empty / 1e6, "MB");
    report.atMost("memory: " + std::to_string(count) + " keys and files", full / 1e6, 20, "MB");
    report.figure("memory: a key and its file", (full - empty) / static_cast<double>(count),
                  "bytes");
}

} // namespace Vestrel::Bench
