// SPDX-License-Identifier: Apache-2.0
// What tests of the event loop share: the loop itself, its switch, and the traces of failures.
#pragma once

#include "platform/zell/ActivityManager.h"
#include "platform/zell/TraceHandle.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Vestrel::Tests {

inline bool readable(int descriptor, int timeoutMilliseconds = 0) {
    pollfd query{descriptor, POLLIN, 0};
    return poll(&query, 1, timeoutMilliseconds) == 1;
}

// The numbers that are open in this process, in order.
inline std::vector<std::string> openDescriptors() {
    std::vector<std::string> numbers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        numbers.push_back(entry.path().filename());
    }
    std::ranges::sort(numbers);
    return numbers;
}

class LoopTest : public testing::Test {
protected:
    LoopTest() {
        Zell::ActivityFacility::activityManagerConfig().useEpollIs(true);
        Zell::traceSinkIs([this](const Zell::TraceLine& line) { traces.emplace_back(line.text); });
    }

    void TearDown() override {
        Zell::ActivityFacility::activityManagerConfig().useEpollIs(false);
        Zell::traceSinkIs(nullptr);
    }

    // Dispatches as a host does that polls, until `done`; gives up when nothing happens for 3 s.
    bool dispatchUntil(const std::function<bool()>& done) {
        loop->dispatch();
        while (!done()) {
            if (!readable(loop->pollFd(), 3000)) {
                return false;
            }
            loop->dispatch();
        }
        return true;
    }

    std::vector<std::string> traces;
    Orvo::Ptr<Zell::ActivityManager> loop = Zell::ActivityFacility::activityManager();
};

} // namespace Vestrel::Tests
