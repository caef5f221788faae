// SPDX-License-Identifier: Apache-2.0
// Which of two exit statuses stands.
#include "ctl/ExitStatus.h"

#include <algorithm>
#include <array>

namespace Vestrel {

namespace {

constexpr std::array gravest{ExitStatus::wrongUsage, ExitStatus::failed, ExitStatus::refused,
                             ExitStatus::unknown,    ExitStatus::late,   ExitStatus::unhealthy,
                             ExitStatus::done};

} // namespace

ExitStatus worse(ExitStatus one, ExitStatus other) {
    return *std::ranges::find_if(
        gravest, [=](ExitStatus status) { return status == one || status == other; });
}

} // namespace Vestrel
