// SPDX-License-Identifier: Apache-2.0
// Scenarios as text.
#include "tests/scenario/Step.h"

#include "tests/scenario/Rings.h"

#include <algorithm>
#include <sstream>

namespace Vestrel::Tests {

std::string textOf(const Step& step) {
    std::string text = step.verb;
    for (const std::string& word : step.words) {
        text += " " + word;
    }
    return text;
}

std::string textOf(const Steps& steps) {
    std::string text;
    for (const Step& step : steps) {
        text += textOf(step) + "\n";
    }
    return text;
}

Steps stepsOf(std::string_view text) {
    std::string lines(text);
    std::ranges::replace(lines, ';', '\n');
    std::istringstream in(lines);
    Steps steps;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        Step step;
        if (!(words >> step.verb)) {
            continue;
        }
        for (std::string word; words >> word;) {
            step.words.push_back(word);
        }
        steps.push_back(step);
    }
    return steps;
}

std::string placeOf(const std::string& path) {
    return path.substr(0, path.find('/'));
}

std::string nameOf(const std::string& path) {
    return path.substr(path.find('/') + 1);
}

std::string realPath(const std::string& path) {
    return directoryOf(placeOf(path)) + "/" + nameOf(path);
}

} // namespace Vestrel::Tests
