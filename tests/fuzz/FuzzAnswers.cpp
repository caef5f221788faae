// SPDX-License-Identifier: Apache-2.0
// What an agent may answer, as the verbs of vestrelctl read it. The first byte names the verb, and
// is a capital letter when the result is to be text.
#include "ctl/AgentRecord.h"
#include "ctl/CommandLine.h"
#include "tests/fuzz/Fuzz.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <sstream>
#include <string>

namespace {

using namespace Vestrel;
using Tests::require;

// Stands for the connections: gives line after line and then the last one again, or ends where the
// input ends within a line. In all it gives so many, which no verb needs.
class Agent {
public:
    static constexpr int mostLines = 32;

    void bytesAre(std::string_view bytes) { *this = Agent(bytes); }

    Agent() = default;

    std::size_t give(char* buffer, std::size_t size) {
        if (piece_.empty() && !next()) {
            return 0;
        }
        const std::size_t given = piece_.copy(buffer, size);
        piece_.remove_prefix(given);
        return given;
    }

private:
    explicit Agent(std::string_view bytes) : left_(bytes) {}

    bool next() {
        if (!left_.empty()) {
            line_ = left_.substr(0, std::min(left_.find('\n'), left_.size() - 1) + 1);
            left_.remove_prefix(line_.size());
        } else if (!line_.ends_with('\n')) {
            return false;
        }
        piece_ = line_;
        return ++lines_ <= mostLines;
    }

    std::string_view left_;
    std::string_view line_;
    std::string_view piece_;
    int lines_ = 0;
};

Agent agent;

const std::map<char, std::string> verbs{
    {'s', "status"}, {'k', "keys"}, {'f', "files"}, {'r', "resync"}, {'t', "trace"}};

Action actionOf(const std::string& verb) {
    const std::array words{"vestrelctl", verb.c_str()};
    std::ostringstream nowhere;
    auto status = ExitStatus::done;
    return commandOf(static_cast<int>(words.size()), words.data(), nowhere, nowhere, status)
        .value()
        .action;
}

std::map<char, Action> actions() {
    std::map<char, Action> all;
    for (const auto& [letter, verb] : verbs) {
        all[letter] = actionOf(verb);
    }
    return all;
}

bool isOnlyRows(const std::string& line, const std::string& verb) {
    const Json result = Json::parse(line, nullptr, false);
    return result.is_object() && result.contains(verb == "status" ? "problems" : verb) &&
           std::ranges::all_of(result, [](const Json& rows) { return rows.is_array(); }) &&
           line.find('\n') == line.size() - 1;
}

bool isPlain(const std::string& text) {
    return std::ranges::all_of(text, [](char c) {
        return c == '\n' || (static_cast<unsigned char>(c) >= ' ' && c != '\x7f');
    });
}

void judge(char letter, bool isJson) {
    static const auto& all = *new std::map(actions());
    std::ostringstream out;
    std::ostringstream err;
    Output output(out, err);
    output.jsonIs(isJson);
    try {
        const ExitStatus status = all.at(letter)(output);
        require(status == ExitStatus::done || status == ExitStatus::unknown ||
                    (letter == 's' && status == ExitStatus::unhealthy),
                "a verb that shows something is done, or says what is wrong");
    } catch (const std::exception& failure) {
        require(out.str().empty(), "who fails has shown nothing");
        require(*failure.what() != '\0', "a failure has a reason");
        return;
    }
    require(!isJson || isOnlyRows(out.str(), verbs.at(letter)), "the result is rows");
    require(isJson || isPlain(out.str()), "a text has no control characters");
}

// What install asks of the agent; it goes on whatever is answered.
void follow() {
    FileRecord record(".ima", "lost");
    record.update();
    require(record.noAgent().empty(), "there is an agent");
    require(record.silence().empty() || record.refusal().empty(), "a refusal is an answer");
}

} // namespace

// In libc's place, for what is linked into this program.
extern "C" {

int connect(int /*socket*/, const sockaddr* /*address*/, socklen_t /*size*/) {
    return 0;
}

ssize_t send(int /*socket*/, const void* /*bytes*/, std::size_t size, int /*flags*/) {
    return static_cast<ssize_t>(size);
}

ssize_t recv(int /*socket*/, void* buffer, std::size_t size, int /*flags*/) {
    return static_cast<ssize_t>(agent.give(static_cast<char*>(buffer), size));
}
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = Tests::textOf(data, size);
    if (input.empty()) {
        return 0;
    }
    agent.bytesAre(input.substr(1));
    const bool isJson = input[0] >= 'a';
    const char letter = isJson ? input[0] : static_cast<char>(input[0] - 'A' + 'a');
    if (verbs.contains(letter)) {
        judge(letter, isJson);
    } else {
        follow();
    }
    return 0;
}
