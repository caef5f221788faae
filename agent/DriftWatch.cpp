// SPDX-License-Identifier: Apache-2.0
// When to look, what to believe, and when to rebuild.
#include "agent/DriftWatch.h"

#include "keyring/KeyringCounters.h"
#include "platform/zell/UtcTime.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Vestrel {

namespace {

using std::chrono::milliseconds;

template <std::string DriftRecord::*Member>
constexpr Zell::AttributeData text(const char* name) {
    return {name,
            [](const void* object) -> Orvo::Value {
                return Orvo::String(static_cast<const DriftRecord*>(object)->*Member);
            },
            nullptr};
}

void forEachDifference(const void* object, const Zell::CollectionData::Visitor& visitor) {
    std::size_t number = 0;
    for (const std::string& difference : static_cast<const DriftRecord*>(object)->differences) {
        visitor(std::to_string(++number), Orvo::String(difference));
    }
}

const Zell::TypeRegistration registration(DriftRecord::typeData());

Differences inBoth(const Differences& first, const Differences& second) {
    Differences found;
    std::ranges::set_intersection(first, second, std::inserter(found, found.end()));
    return found;
}

} // namespace

const Zell::TypeData& DriftRecord::typeData() {
    static const Zell::TypeData& type =
        (*new Zell::TypeData("Vestrel::DriftRecord"))
            .attributeIs(Zell::keyAttribute<&DriftRecord::looks>("looks"))
            .attributeIs(Zell::keyAttribute<&DriftRecord::recoveries>("recoveries"))
            .attributeIs(text<&DriftRecord::lastRecoveryTime>("lastRecoveryTime"))
            .attributeIs(text<&DriftRecord::lastDifferences>("lastDifferences"))
            .collectionIs({"differences", &forEachDifference});
    return type;
}

DriftWatch::DriftWatch(const Orvo::Ptr<Zell::ActivityManager>& loop, Host host, const Times& times)
    : loop_(loop), host_(std::move(host)), times_(times) {
    KeyringCounters::doubtObserverIs([this] { doubted(); });
    rebuilt();
    if (times_.interval.count() != 0) {
        laterIs(times_.interval, &DriftWatch::tick);
    }
}

DriftWatch::~DriftWatch() {
    KeyringCounters::doubtObserverIs(nullptr);
}

void DriftWatch::laterIs(milliseconds delay, void (DriftWatch::*step)()) {
    loop_->afterIs(Orvo::Duration(delay), [this, step, held = std::weak_ptr(alive_)] {
        if (!held.expired()) {
            (this->*step)();
        }
    });
}

void DriftWatch::tick() {
    laterIs(times_.interval, &DriftWatch::tick);
    check();
}

// Within a handler of the state machine: nothing more than a note.
void DriftWatch::doubted() {
    if (!std::exchange(isDoubtNoted_, true)) {
        laterIs(times_.confirmAfter, &DriftWatch::check);
    }
}

Differences DriftWatch::look() {
    ++record_.looks;
    IntegrityKeyringSm& stateMachine = host_.stateMachine();
    Differences all;
    for (const char* const keyringName : IntegrityKeyringSm::keyringNames) {
        stateMachine.handleInotify(keyringName);
        stateMachine.handleKeyringWatch(keyringName);
        all.merge(differences(surveyed(keyringName), stateMachine, eventsWereLost(keyringName)));
    }
    return all;
}

Differences DriftWatch::lookTwice() {
    const Differences first = look();
    return first.empty() ? first : inBoth(first, look());
}

void DriftWatch::check() {
    isDoubtNoted_ = false;
    if (isConfirming_) {
        return;
    }
    suspected_ = look();
    if (suspected_.empty()) {
        decide({});
        return;
    }
    isConfirming_ = true;
    laterIs(times_.confirmAfter, &DriftWatch::confirm);
}

void DriftWatch::confirm() {
    isConfirming_ = false;
    decide(inBoth(suspected_, look()));
}

void DriftWatch::decide(const Differences& confirmed) {
    record_.differences = confirmed;
    if (confirmed.empty()) {
        attempts_ = 0;
        tried_.clear();
        return;
    }
    if (!std::ranges::includes(tried_, confirmed)) {
        attempts_ = 0;
        nextRecovery_ = std::min(nextRecovery_, lastRecovery_ + times_.spacing);
    }
    const Clock::time_point now = host_.clock();
    if (now >= nextRecovery_) {
        recover(confirmed);
    } else if (attempts_ == 0) { // it is new, and the next look may be far away
        laterIs(std::chrono::ceil<milliseconds>(nextRecovery_ - now), &DriftWatch::check);
    }
}

void DriftWatch::recover(const Differences& confirmed) {
    tried_.insert(confirmed.begin(), confirmed.end());
    lastRecovery_ = host_.clock();
    nextRecovery_ = lastRecovery_ + waitAfter(++attempts_);
    ++record_.recoveries;
    record_.lastRecoveryTime = Zell::utcText(std::chrono::system_clock::now());
    record_.lastDifferences = summary(confirmed);
    host_.rebuild(confirmed);
}

DriftWatch::Clock::duration DriftWatch::waitAfter(unsigned attempts) const {
    const auto base = std::max<Clock::duration>(times_.interval, times_.spacing);
    return std::min<Clock::duration>(base * (1U << std::min(attempts - 1, 16U)),
                                     times_.longestWait);
}

void DriftWatch::lostEventsMakeUp() {
    for (const char* const keyringName : IntegrityKeyringSm::keyringNames) {
        if (eventsWereLost(keyringName)) {
            lostEventsMakeUpFor(surveyed(keyringName), host_.stateMachine());
        }
    }
}

void DriftWatch::rebuilt() {
    for (const char* const keyringName : IntegrityKeyringSm::keyringNames) {
        overflows_[keyringName] = KeyringCounters::of(keyringName).overflows;
    }
    if (!record_.differences.empty()) { // whether they are cured is worth a look of its own
        doubted();
    }
}

bool DriftWatch::eventsWereLost(const std::string& keyringName) const {
    const auto known = overflows_.find(keyringName);
    return known != overflows_.end() && known->second != KeyringCounters::of(keyringName).overflows;
}

} // namespace Vestrel
