// SPDX-License-Identifier: Apache-2.0
// Keeps and hands out the scripted answers.
#include "tests/fakes/FailureScript.h"

#include "tests/fakes/Misuse.h"

#include <algorithm>

namespace Vestrel::Tests {

FailureScript::FailureScript(std::string_view owner, std::initializer_list<std::string_view> names)
    : owner_(owner), names_(names.begin(), names.end()) {}

void FailureScript::failNth(std::string_view name, std::size_t nth, int error) {
    if (error <= 0) {
        misuse(owner_, "a failure needs a positive errno");
    }
    answerNth(name, nth, Answer{-1, error});
}

void FailureScript::answerNth(std::string_view name, std::size_t nth, Answer answer) {
    if (std::find(names_.begin(), names_.end(), name) == names_.end()) {
        misuse(owner_, "the call " + std::string(name) + " cannot be scripted");
    }
    if (nth == 0) {
        misuse(owner_, "calls are counted from 1");
    }
    entries_.push_back(Entry{std::string(name), nth, answer});
}

std::optional<Answer> FailureScript::take(std::string_view name) {
    std::optional<Answer> due;
    for (Entry& entry : entries_) {
        if (entry.name == name && --entry.callsLeft == 0) {
            due = entry.answer;
        }
    }
    std::erase_if(entries_, [](const Entry& entry) { return entry.callsLeft == 0; });
    return due;
}

} // namespace Vestrel::Tests
