// SPDX-License-Identifier: Apache-2.0
// Points in time as text.
#include "platform/zell/UtcTime.h"

#include <array>
#include <ctime>

namespace Zell {

std::string utcText(std::chrono::system_clock::time_point time) {
    using std::chrono::system_clock;
    if (time == system_clock::time_point()) {
        return {};
    }
    const auto second = std::chrono::floor<std::chrono::seconds>(time);
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(time - second);
    const std::time_t seconds = system_clock::to_time_t(second);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> date{};
    const std::size_t size = std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    const std::string milliseconds = std::to_string(1000 + rest.count()).substr(1);
    return std::string(date.data(), size) + "." + milliseconds + "Z";
}

} // namespace Zell
