// SPDX-License-Identifier: Apache-2.0
// Runs the command in this process, and what came of it.
#pragma once

#include "ctl/CommandLine.h"

#include <nlohmann/json.hpp>

#include <sstream>
#include <string>
#include <vector>

namespace Vestrel::Tests {

struct Ran {
    int status;
    std::string out;
    std::string err;

    // Of a result written as JSON.
    nlohmann::json json() const { return nlohmann::json::parse(out); }
};

inline Ran ctl(std::vector<std::string> words) {
    words.insert(words.begin(), "vestrelctl");
    std::vector<const char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    std::ostringstream out;
    std::ostringstream err;
    const int status = run(static_cast<int>(arguments.size()), arguments.data(), out, err);
    return {status, out.str(), err.str()};
}

} // namespace Vestrel::Tests
