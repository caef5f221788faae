// SPDX-License-Identifier: Apache-2.0
// The list of answers that a test has prepared for chosen calls, by the call's name and turn.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Tests {

/// What a scripted call returns, and the errno that it leaves.
struct Answer {
    long value;
    int error;
};

/// Answers wait for the n-th call of their name, counted from the moment they were added.
class FailureScript {
public:
    /// Only `names` may be scripted: a misspelt name is misuse, not an answer that never comes.
    FailureScript(std::string_view owner, std::initializer_list<std::string_view> names);

    void failNth(std::string_view name, std::size_t nth, int error);
    void answerNth(std::string_view name, std::size_t nth, Answer answer);

    /// Counts one call of `name`; the answer if this call's turn has come.
    std::optional<Answer> take(std::string_view name);

    /// The answers that no call has taken yet.
    std::size_t pending() const { return entries_.size(); }

private:
    struct Entry {
        std::string name;
        std::size_t callsLeft;
        Answer answer;
    };

    std::string owner_;
    std::vector<std::string> names_;
    std::vector<Entry> entries_;
};

} // namespace Vestrel::Tests
