// SPDX-License-Identifier: Apache-2.0
// Finds trace statements and log calls in the text of the sources.
#include "tests/texts/SourceStatements.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

struct Source {
    std::string name;
    std::string text;
};

std::vector<Source> sources() {
    std::vector<Source> all;
    for (const char* const folder : {"keyring", "syslog"}) {
        for (const auto& entry : fs::directory_iterator(fs::path(VESTREL_SOURCES) / folder)) {
            if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h") {
                std::ostringstream text;
                text << std::ifstream(entry.path()).rdbuf();
                all.push_back(
                    {std::string(folder) + "/" + entry.path().filename().string(), text.str()});
            }
        }
    }
    return all;
}

// Behind the literal that starts at `at`.
std::size_t behindLiteral(std::string_view text, std::size_t at) {
    for (++at; text.at(at) != '"'; ++at) {
        at += text[at] == '\\' ? 1U : 0U;
    }
    return at + 1;
}

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \n");
    const auto last = text.find_last_not_of(" \n");
    return first == std::string_view::npos ? "" : std::string(text.substr(first, last - first + 1));
}

// What stands between the commas of a call whose bracket opens at `at`.
std::vector<std::string> arguments(std::string_view text, std::size_t at) {
    std::vector<std::string> all;
    std::size_t start = ++at;
    for (int depth = 1; depth != 0;) {
        const char c = text.at(at);
        if (c == '"') {
            at = behindLiteral(text, at);
            continue;
        }
        depth += c == '(' ? 1 : c == ')' ? -1 : 0;
        if ((c == ',' && depth == 1) || depth == 0) {
            all.push_back(trimmed(text.substr(start, at - start)));
            start = at + 1;
        }
        ++at;
    }
    return all;
}

bool isLiteral(const std::string& argument) {
    return argument.starts_with('"');
}

std::string literal(const std::string& argument) {
    return argument.substr(1, argument.size() - 2);
}

// The member function that the place stands in: the last one that begins at the start of a line.
std::string enclosing(const std::string& text, std::size_t at) {
    static const std::regex definition(R"(\n(?! )[\w:<>&* ]*?\w+::(~?\w+)\()");
    std::string name;
    for (std::sregex_iterator match(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at),
                                    definition);
         match != std::sregex_iterator(); ++match) {
        name = (*match)[1];
    }
    return name;
}

// In whose name the helper classes of a source trace.
std::string givenOperation(const std::string& source) {
    static const std::map<std::string, std::string> operations{
        {"keyring/DirectoryEvents.cpp", "handleInotify"},
        {"keyring/KeyringNotifications.cpp", "handleKeyringWatch"},
        {"keyring/KeyringStock.cpp", "createWatcher"}};
    const auto found = operations.find(source);
    if (found == operations.end()) {
        throw std::runtime_error(source + " traces in the name of an operation unknown here");
    }
    return found->second;
}

SourceStatement statement(const Source& source, const std::smatch& match) {
    const auto at = static_cast<std::size_t>(match.position());
    const std::string macro = match[1];
    std::vector<std::string> given = arguments(source.text, at + macro.size());
    SourceStatement result;
    result.where = source.name + ":" +
                   std::to_string(1 + std::count(source.text.begin(),
                                                 source.text.begin() + match.position(), '\n'));
    result.handle = source.name.starts_with("syslog/") ? "IntegritySyslogSm" : "IntegrityKeyringSm";
    if (macro.ends_with("_IN")) {
        result.operation = givenOperation(source.name);
        given.erase(given.begin());
    } else {
        result.operation = enclosing(source.text, at);
    }
    result.level = 1;
    if (macro.starts_with("DUOLOG_FAILED")) {
        given.front().insert(given.front().size() - 1, ": ");
        given.insert(given.begin() + 1, "cause");
    } else {
        result.level = std::stoi(given.front());
        given.erase(given.begin());
    }
    for (const std::string& value : given) {
        result.isExpression.push_back(!isLiteral(value));
        result.values.push_back(isLiteral(value) ? literal(value) : "");
    }
    return result;
}

template <class Found>
void forEachMatch(const std::string& text, const std::regex& pattern, const Found& found) {
    for (std::sregex_iterator match(text.begin(), text.end(), pattern);
         match != std::sregex_iterator(); ++match) {
        found(*match);
    }
}

} // namespace

std::vector<SourceStatement> traceStatements() {
    static const std::regex macro(R"(\b(DUOLOG(?:_FAILED)?(?:_IN)?)\()");
    std::vector<SourceStatement> all;
    for (const Source& source : sources()) {
        forEachMatch(source.text, macro,
                     [&](const std::smatch& match) { all.push_back(statement(source, match)); });
    }
    return all;
}

std::vector<std::string> logCalls() {
    static const std::regex call(R"(\blog\(\w+\.(\w+),)");
    std::vector<std::string> all;
    for (const Source& source : sources()) {
        forEachMatch(source.text, call, [&](const std::smatch& match) { all.push_back(match[1]); });
    }
    std::ranges::sort(all);
    return all;
}

} // namespace Vestrel::Tests
