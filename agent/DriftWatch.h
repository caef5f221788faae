// SPDX-License-Identifier: Apache-2.0
// Finds out when record, kernel and directories have drifted apart, and has them rebuilt.
#pragma once

#include "agent/Drift.h"
#include "platform/orvo/Duration.h"
#include "platform/orvo/Ptr.h"
#include "platform/zell/ActivityManager.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace Vestrel {

// What is known of drift, for views of the agent.
struct DriftRecord {
    std::int64_t looks = 0;       // comparisons made
    std::int64_t recoveries = 0;  // rebuilds because of what they found
    std::string lastRecoveryTime; // universal time; empty before the first
    std::string lastDifferences;  // what differed then
    Differences differences;      // what still differed at the last look and the one before it

    static const Zell::TypeData& typeData();
};

// Looks every `interval`, and shortly after the state machine had to doubt what it has on record. A
// difference counts when a second look a moment later finds it too. Then the state machine is
// rebuilt; but not again for the same differences before a time that doubles with every rebuild
// which did not cure them.
class DriftWatch {
public:
    struct Times {
        std::chrono::seconds interval{300}; // 0: only when there is doubt
        std::chrono::milliseconds confirmAfter{1000};
        std::chrono::seconds spacing{10}; // of two rebuilds at least
        std::chrono::seconds longestWait{86400};
    };

    struct Host {
        // The state machine at this moment, and how it is made anew.
        std::function<IntegrityKeyringSm&()> stateMachine;
        std::function<void(const Differences&)> rebuild; // calls the two operations below
        std::function<std::chrono::steady_clock::time_point()> clock =
            std::chrono::steady_clock::now;
    };

    // Observes the doubts of the process while it lives.
    DriftWatch(const Orvo::Ptr<Zell::ActivityManager>& loop, Host host, const Times& times);
    ~DriftWatch();
    DriftWatch(const DriftWatch&) = delete;
    DriftWatch& operator=(const DriftWatch&) = delete;

    // Handles what is waiting and compares; rebuilds nothing.
    Differences look();

    // What two looks find, one right after the other: a file that arrives between the handling and
    // the comparison is no difference, since the second look handles it.
    Differences lookTwice();

    // Looks, and looks again to confirm what was found, after which it may rebuild.
    void check();

    // Before the state machine is made anew, whoever wants it: catches up on removals and changes
    // whose events were lost, which a start cannot know of.
    void lostEventsMakeUp();
    // After it: its directories were read whole.
    void rebuilt();

    const DriftRecord& record() const { return record_; }

private:
    using Clock = std::chrono::steady_clock;

    void doubted();
    void confirm();
    void decide(const Differences& confirmed);
    void recover(const Differences& confirmed);
    void tick();
    void laterIs(std::chrono::milliseconds delay, void (DriftWatch::*step)());
    bool eventsWereLost(const std::string& keyringName) const;
    Clock::duration waitAfter(unsigned attempts) const;

    Orvo::Ptr<Zell::ActivityManager> loop_;
    Host host_;
    Times times_;
    DriftRecord record_;
    Differences suspected_; // at the first of two looks
    Differences tried_;     // what rebuilds were tried for since all was well
    unsigned attempts_ = 0; // rebuilds that did not cure it
    Clock::time_point lastRecovery_ = Clock::time_point::min();
    Clock::time_point nextRecovery_ = Clock::time_point::min();
    bool isDoubtNoted_ = false;
    bool isConfirming_ = false;
    std::map<std::string, std::int64_t> overflows_; // counted when the directories were read whole
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace Vestrel
