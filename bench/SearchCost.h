// SPDX-License-Identifier: Apache-2.0
// The time of a search on lines that are made to cost much.
#pragma once

#include "bench/Report.h"

#include <cstddef>

namespace Vestrel::Bench {

// Measures every hostile kind and so many random tilings at full length, and what doubling the
// length does.
void measureSearches(Report& report, std::size_t tilings);

} // namespace Vestrel::Bench
