// SPDX-License-Identifier: Apache-2.0
// Compares what vestrel-agent(8) says of the status socket's answers with what is answered.
#include "agent/Requests.h"
#include "platform/brisklog/Brisklog.h"
#include "tests/keyring/CertificateDirectories.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <set>

namespace Vestrel::Tests {

namespace {

using Names = std::set<std::string>;

// The section of the page that names them.
std::string section() {
    std::ifstream file(VESTREL_AGENT_PAGE);
    const std::string page{std::istreambuf_iterator<char>(file), {}};
    const std::size_t begin = page.find("\n.SH \"STATUS ANSWERS\"\n");
    return begin == std::string::npos ? ""
                                      : page.substr(begin, page.find("\n.SH ", begin + 1) - begin);
}

// What the members below a heading stand in, with a point behind it. Nothing below the headings of
// other methods. Headings are such as: Resync, or "Status: counters.log" with the quotes.
std::optional<std::string> prefixOf(const std::string& heading, const std::string& method) {
    const std::string beginning = '"' + method + ": ";
    if (heading == method) {
        return "";
    }
    if (!heading.starts_with(beginning)) {
        return std::nullopt;
    }
    return heading.substr(beginning.size(), heading.size() - beginning.size() - 1) + ".";
}

// The members at the heads of the entries below that method's headings, with those that they stand
// in.
Names named(const std::string& method) {
    const std::string text = section();
    static const std::regex line("\n\\.(SS|TP\n\\.BR?) ([^\n]*)");
    static const std::regex member("[A-Za-z]+");
    Names names;
    std::optional<std::string> prefix;
    for (std::sregex_iterator found(text.begin(), text.end(), line), end; found != end; ++found) {
        const std::string words = (*found)[2];
        if ((*found)[1] == "SS") {
            prefix = prefixOf(words, method);
        } else if (prefix) {
            for (std::sregex_token_iterator word(words.begin(), words.end(), member), last;
                 word != last; ++word) {
                names.insert(*prefix + word->str());
            }
        }
    }
    return names;
}

// What stands in the page for a name that differs from agent to agent.
std::string placeholder(const std::string& name) {
    static const std::regex number("[0-9]+");
    if (std::regex_match(name, number)) {
        return "NUMBER";
    }
    if (name.starts_with('.')) {
        return "KEYRING";
    }
    if (name.starts_with('/')) {
        return "FILE";
    }
    return name.find(": ") == std::string::npos ? name : "DESCRIPTION";
}

// Every member that holds no others, with those that it stands in.
void membersAdd(const Json& value, const std::string& path, Names& names) {
    if (!value.is_structured() || value.empty()) {
        names.insert(path);
        return;
    }
    for (const auto& [name, member] : value.items()) {
        const std::string separator = path.empty() ? "" : ".";
        membersAdd(member, value.is_array() ? path : path + separator + placeholder(name), names);
    }
}

// A collection may be empty in one place if it shows in another what it holds.
Names members(const Json& answer) {
    Names names;
    membersAdd(answer, "", names);
    std::erase_if(names, [&](const std::string& name) {
        const auto next = names.lower_bound(name + ".");
        return next != names.end() && next->starts_with(name + ".");
    });
    return names;
}

// What the one has and the other lacks, a line each.
std::string without(const Names& one, const Names& other) {
    std::string lines;
    for (const std::string& name : one) {
        lines += other.contains(name) ? "" : name + "\n";
    }
    return lines;
}

// An agent's answers, each with something in all that it holds.
class SocketMembers : public CertificateDirectories {
protected:
    SocketMembers() : syslog_(integritySyslogSmFactory()) {
        start();
        put("signer", "first");
        dispatch();
        keys.judgeWith([](auto) { return EBADMSG; });
        put("bad", "second");
        dispatch();
        Brisklog::eventIs(1, "H", "f()", {"text"});
        drift_.differences = {"a"};
    }

    ~SocketMembers() override { Brisklog::eventsDelAll(); }

    void expectAsNamed(const std::string& method) const {
        const std::string request = R"({"method":")" + method + R"("})";
        const Names answered = members(Json::parse(requests_.answer(request))["parameters"]);
        EXPECT_EQ(without(answered, named(method)), "") << "not in the page";
        EXPECT_EQ(without(named(method), answered), "") << "in the page alone";
    }

    Orvo::Ptr<IntegritySyslogSm> syslog_;
    DriftRecord drift_;
    const Requests requests_{{[this]() -> IntegrityKeyringSm& { return *sm; },
                              [this]() -> IntegritySyslogSm& { return *syslog_; },
                              [this]() -> const DriftRecord& { return drift_; },
                              [] { return Differences{"a"}; }}};
};

TEST_F(SocketMembers, OfStatusAreThoseOfThePage) {
    expectAsNamed("Status");
}

TEST_F(SocketMembers, OfKeyringsAreThoseOfThePage) {
    expectAsNamed("Keyrings");
}

TEST_F(SocketMembers, OfResyncAreThoseOfThePage) {
    expectAsNamed("Resync");
}

TEST_F(SocketMembers, OfTraceAreThoseOfThePage) {
    expectAsNamed("Trace");
}

} // namespace

} // namespace Vestrel::Tests
