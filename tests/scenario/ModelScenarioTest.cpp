// SPDX-License-Identifier: Apache-2.0
// Scenarios on the model of the key service.
#include "tests/scenario/ModelStage.h"
#include "tests/scenario/ScenarioTest.h"

namespace Vestrel::Tests {
namespace {

constexpr std::uint64_t usualScenarios = 200;

std::unique_ptr<Stage> modelStage(std::uint64_t seed) {
    return std::make_unique<ModelStage>(seed);
}

VESTREL_SCENARIOS_ON(ModelScenario, modelStage, usualScenarios);

} // namespace
} // namespace Vestrel::Tests
