// SPDX-License-Identifier: Apache-2.0
// Recognises the audit record that the kernel writes when the appraisal of a file fails.
#pragma once

#include "platform/orvo/Regex.h"

#include <cstddef>
#include <string_view>

namespace Vestrel {

// The definition of what is recognised.
inline constexpr const char* appraisalPattern =
    R"(kernel: \[\s*[\d\.]+\]\[\s*T\d+\]\s+audit:\s+type=1800\s+audit\(([\d\.:]+)\):\s+)"
    R"(pid=(\d+)\s+uid=(\d+)\s+auid=(\d+)\s+ses=(\d+)\s+op=appraise_data\s+cause=(.+)\s+)"
    R"REGEX(comm="([^"]+)"\s+name="([^"]+)"\s+dev="([^"]+)"\s+ino=(\d+)\s+res=(\d+)\s+errno=(\d+)$)REGEX";

// The capture groups that count.
inline constexpr std::size_t causeGroup = 6;
inline constexpr std::size_t commandGroup = 7;
inline constexpr std::size_t fileGroup = 8;

// The search for appraisalPattern, written out: the leftmost match, in time linear in the text and
// with a small constant of stack. A test and a fuzzer hold it equal to the standard matcher.
bool appraisalSearch(std::string_view text, Orvo::Regex::Groups& groups);

} // namespace Vestrel
