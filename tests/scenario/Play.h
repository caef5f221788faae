// SPDX-License-Identifier: Apache-2.0
// Plays scenarios and compares what comes of them with what has to.
#pragma once

#include "tests/scenario/Kinds.h"
#include "tests/scenario/Stage.h"
#include "tests/scenario/Step.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Vestrel::Tests {

/// Sets up an empty stage. The number decides whatever the stage leaves to chance.
using StageMaker = std::function<std::unique_ptr<Stage>(std::uint64_t seed)>;

/// The first difference with the steps up to it, or nothing; `kinds` counts what was done. What the
/// system would refuse is left out. A step that has to end the process is the last one: it is done
/// anew from the first step in a copy of this process, which has to end with that assertion.
std::optional<std::string> play(const Steps& steps, const StageMaker& makeStage, std::uint64_t seed,
                                Kinds& kinds);

struct Played {
    std::uint64_t scenarios = 0;
    std::uint64_t steps = 0;
    Kinds kinds;
    std::optional<std::string> difference; // of the first scenario that has one, made short
};

/// `count` random scenarios from `firstSeed` on; stops at a difference.
Played playRandom(const StageMaker& makeStage, std::uint64_t firstSeed, std::uint64_t count);

/// How many scenarios to play: VESTREL_SCENARIOS of the environment or `usual`, and the first seed:
/// VESTREL_SEED or 1.
std::uint64_t scenariosWanted(std::uint64_t usual);
std::uint64_t seedWanted();

} // namespace Vestrel::Tests
