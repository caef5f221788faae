// SPDX-License-Identifier: Apache-2.0
// Counts what scenarios really did, by kind, so that no kind goes missing unseen.
#pragma once

#include "tests/scenario/Observation.h"
#include "tests/scenario/Rings.h"
#include "tests/scenario/Step.h"
#include "tests/scenario/Tree.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Vestrel::Tests {

class Contents;

/// A step can be of several kinds, or of none. Files count where they are watched.
class Kinds {
public:
    /// Of a step that was performed: what stood before it and what stands now.
    void fileStepIs(const Step& step, const Tree& before, const Tree& after,
                    const Contents& contents);
    /// `before`: what the keyring held.
    void keyStepIs(const Step& step, const Ring& ring, const Members& before,
                   const Contents& contents);

    void kindIs(const std::string& kind) { ++counts_[kind]; }

    void kindsIs(const Kinds& other);

    std::uint64_t count(const std::string& kind) const;

    /// Those that enough random scenarios have to show.
    static const std::vector<std::string>& wanted();
    static constexpr const char* end = "end of the process";
    static constexpr const char* leftOut = "left out";

    /// "KIND COUNT" of each, separated by commas.
    std::string text() const;

private:
    void writeIs(const std::string& path, const Tree& before);
    void moveIs(const std::string& from, const std::string& to, const Tree& before);
    void contentIs(const std::string& path, const Tree& before, const Tree& after,
                   const Contents& contents);

    std::map<std::string, std::uint64_t> counts_;
};

} // namespace Vestrel::Tests
