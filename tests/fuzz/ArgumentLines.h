// SPDX-License-Identifier: Apache-2.0
// The words of a command line from an input that has one a line.
#pragma once

#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

class ArgumentLines {
public:
    ArgumentLines(std::string program, std::string_view input) : arguments_{std::move(program)} {
        std::istringstream lines{std::string(input)};
        for (std::string line; std::getline(lines, line);) {
            arguments_.push_back(line);
        }
        for (std::string& argument : arguments_) {
            words_.push_back(argument.data());
        }
    }

    ArgumentLines(const ArgumentLines&) = delete;
    ArgumentLines& operator=(const ArgumentLines&) = delete;

    int count() const { return static_cast<int>(words_.size()); }

    char** words() { return words_.data(); }

private:
    std::vector<std::string> arguments_;
    std::vector<char*> words_;
};

} // namespace Vestrel::Tests
