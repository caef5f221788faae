// SPDX-License-Identifier: Apache-2.0
// The trace statements and log calls as they stand in the sources.
#pragma once

#include <string>
#include <vector>

namespace Vestrel::Tests {

struct SourceStatement {
    std::string where; // file and line
    std::string handle;
    std::string operation;
    int level;
    std::vector<std::string> values; // a literal's text, or empty and isExpression
    std::vector<bool> isExpression;
};

// All of keyring/ and syslog/.
std::vector<SourceStatement> traceStatements();

// The names of the messages that are raised there, once for each log call.
std::vector<std::string> logCalls();

} // namespace Vestrel::Tests
