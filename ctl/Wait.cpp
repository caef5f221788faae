// SPDX-License-Identifier: Apache-2.0
// A bounded wait: the kernel is asked some dozens of times a second, which needs no right to watch.
#include "ctl/Wait.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdlib>
#include <thread>

namespace Vestrel {

namespace {

constexpr std::chrono::milliseconds pause{20};
constexpr double longest = 3600;

// A range takes "nan", which is neither below nor above it, and would never be over.
std::string complaintOf(const std::string& seconds) {
    return std::isnan(std::strtod(seconds.c_str(), nullptr)) ? "Value " + seconds + " is no number"
                                                             : "";
}

} // namespace

void addWait(CLI::App& verb, double& seconds) {
    seconds = static_cast<double>(defaultWait.count());
    verb.add_option("--wait", seconds, "Seconds to wait for the kernel's keyring to follow")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, longest))
        ->check(complaintOf)
        ->capture_default_str();
}

bool holdsWithin(double seconds, const std::function<bool()>& condition) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
    return true;
}

} // namespace Vestrel
