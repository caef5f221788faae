// SPDX-License-Identifier: Apache-2.0
// What has happened to each keyring since the process began.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/String.h"
#include "platform/zell/TypeData.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace Vestrel {

// Counted by the state machines of the process, one after the other: the counts go on when a state
// machine is dropped and made again. Read on the event thread, through the type table.
struct VESTREL_EXPORT KeyringCounters {
    // The last time that a file was not taken.
    struct Refusal {
        std::string reason;
        std::int64_t number = 0; // of this one among all refusals, so that two can be told apart

        bool operator==(const Refusal& other) const = default;
    };

    using Refusals = std::map<std::string, Refusal, std::less<>>;

    // The files whose refusal is remembered; beyond that, others are counted only.
    static constexpr std::size_t maxRefusedFiles = 4096;

    std::int64_t loads = 0;             // files that the kernel took
    std::int64_t refusals = 0;          // files that were not taken, whatever the reason
    std::int64_t unlinks = 0;           // keys taken out of the keyring by the state machine
    std::int64_t notifications = 0;     // of the keyring's watch queue
    std::int64_t notificationsLost = 0; // reports that some were lost, not how many
    std::int64_t overflows = 0;         // of the directory's event queue
    std::int64_t upsets = 0;            // the keyring was cleared, revoked, invalidated or removed
    std::string lastFailureTime;        // universal time; empty before the first failure
    std::string lastFailure;            // what failed, and why
    Refusals refused;                   // by file, until it is taken, gone or forgotten

    // A file was not taken.
    void refusalIs(std::string_view file, std::string_view reason);
    void loadIs(std::string_view file);
    // The directory has no file of this path any more.
    void goneIs(std::string_view file);
    // Something failed with this error of the system, which errno still has afterwards.
    void failureIs(std::string_view what, int error);
    // What was known may be wrong from now on; adds to the counter and tells the observer.
    void doubtIs(std::int64_t KeyringCounters::*counter);

    // Those of the keyring, made at first use, valid as long as the process lives.
    static KeyringCounters& of(std::string_view keyringName);

    using Visitor = std::function<void(const std::string& keyringName, const KeyringCounters&)>;
    static void forEach(const Visitor& visitor);
    static void refusedForget();

    // Called within the handler of the state machine that has to doubt, so it must only take note.
    // None by default.
    using DoubtObserver = std::function<void()>;
    static void doubtObserverIs(DoubtObserver observer);

    static const Zell::TypeData& typeData();
};

} // namespace Vestrel
