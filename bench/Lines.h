// SPDX-License-Identifier: Apache-2.0
// Kernel lines by what becomes of them.
#pragma once

#include <string_view>
#include <vector>

namespace Vestrel::Bench {

using Lines = std::vector<std::string_view>;

enum class Kind { record, nearlyRecord, other };

// Of the ordinary ones.
Lines linesOf(Kind kind);

} // namespace Vestrel::Bench
