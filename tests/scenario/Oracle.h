// SPDX-License-Identifier: Apache-2.0
// Says of one keyring what may be seen, and whether what is seen may be.
#pragma once

#include "tests/scenario/Observation.h"
#include "tests/scenario/Rules.h"

#include <functional>
#include <optional>
#include <set>
#include <string>

namespace Vestrel::Tests {

/// Keeps every world that agrees with all that was seen so far.
class Oracle {
public:
    /// With the keys that the keyring holds and the keys of other processes, by content.
    Oracle(const Ring& ring, const Contents& contents, const Members& members,
           const std::map<std::string, key_serial_t>& held);

    const Ring& ring() const { return ring_; }

    /// A step of the keyring's, "loop" or "restart"; `tree` is what stands in the directories then.
    /// Throws ProcessEnds when it ends the process, whichever way is gone.
    void apply(const Step& step, const Tree& tree);

    /// What is wrong with it, or nothing.
    std::optional<std::string> difference(const Observation& observation);

private:
    void change(const Tree& tree, const std::function<void(Rules&)>& step);

    const Ring& ring_;
    const Contents& contents_;
    std::map<std::string, KeyNumber> held_;
    std::set<World> worlds_;
};

} // namespace Vestrel::Tests
