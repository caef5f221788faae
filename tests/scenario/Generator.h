// SPDX-License-Identifier: Apache-2.0
// Random scenarios.
#pragma once

#include "tests/scenario/Contents.h"
#include "tests/scenario/Step.h"

#include <cstdint>

namespace Vestrel::Tests {

/// The same one for the same seed. It does nothing that the system would refuse. One in fifty ends
/// the process with its last step; the others never do.
Steps randomScenario(const Contents& contents, std::uint64_t seed);

} // namespace Vestrel::Tests
