// SPDX-License-Identifier: Apache-2.0
// Scenarios on the real kernel: the same ones, by their seeds, as on the model.
#include "tests/scenario/ScenarioTest.h"

#include "tests/kernel/cases/KernelStage.h"

namespace Vestrel::Tests {
namespace {

constexpr std::uint64_t usualScenarios = 40;

std::unique_ptr<Stage> kernelStage(std::uint64_t /*seed*/) {
    return std::make_unique<KernelStage>();
}

VESTREL_SCENARIOS_ON(KernelScenario, kernelStage, usualScenarios);

} // namespace
} // namespace Vestrel::Tests
