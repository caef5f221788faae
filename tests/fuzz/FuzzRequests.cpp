// SPDX-License-Identifier: Apache-2.0
// Bytes that a client sends to the status socket, from the socket to the answers. Where the first
// byte is '=' or '>', the first line is what follows it, behind as many blanks as make it as long
// as a line may be, or a byte longer.
#include "agent/Requests.h"
#include "agent/StatusServer.h"
#include "platform/brisklog/Brisklog.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/LineClient.h"
#include "tests/support/PrivateDirectories.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace {

using namespace Vestrel;
using Tests::require;

constexpr const char* path = "/run/requests";
constexpr std::array<std::string_view, 5> errors{"InvalidRequest", "LineTooLong", "MethodNotFound",
                                                 "InvalidParameter", "ReplyTooLarge"};

// An agent without an event loop's turn of its own, and with something to tell.
class Setting {
public:
    Setting() {
        Tests::privateDirectoriesEnter();
        coll_->keyringIs(".ima")->fileToDescriptionIs("/\xff", "a");
        Brisklog::eventIs(1, "H", "f()", {"\xff\n"});
        server_ = std::make_unique<StatusServer>(
            loop_, path, [this](std::string_view request) { return requests_.answer(request); },
            Requests::tooLong(StatusServer::maxLine));
    }

    std::vector<std::string> answersTo(std::string_view bytes) {
        Tests::LineClient client(path, [this] { loop_->dispatch(); });
        require(client.isConnected(), "the server listens");
        client.send(bytes); // as far as it is read
        client.endOfRequests();
        std::vector<std::string> answers;
        for (std::string line = client.line(); !line.empty(); line = client.line()) {
            answers.push_back(std::move(line));
        }
        require(client.isClosed(), "the connection ends when everything is answered");
        return answers;
    }

private:
    Orvo::Ptr<Zell::ActivityManager> loop_ = Zell::ActivityFacility::activityManager();
    Orvo::Ptr<IntegrityKeyringColl> coll_ = Orvo::makeNode<IntegrityKeyringColl>();
    Orvo::Ptr<IntegrityKeyringSm> keyringSm_ = integrityKeyringSmFactory(coll_);
    Orvo::Ptr<IntegritySyslogSm> syslogSm_ = integritySyslogSmFactory();
    DriftRecord drift_;
    const Requests requests_{{[this]() -> IntegrityKeyringSm& { return *keyringSm_; },
                              [this]() -> IntegritySyslogSm& { return *syslogSm_; },
                              [this]() -> const DriftRecord& { return drift_; },
                              [] { return Differences{"\xff"}; }}};
    std::unique_ptr<StatusServer> server_;
};

std::string sent(std::string_view input) {
    const bool isFilled = input.starts_with('=') || input.starts_with('>');
    if (!isFilled) {
        return std::string(input);
    }
    const std::size_t wanted = StatusServer::maxLine + (input[0] == '>' ? 1U : 0U);
    input.remove_prefix(1);
    const std::size_t size = std::min(input.find('\n'), input.size());
    return std::string(wanted - std::min(size, wanted), ' ').append(input);
}

// The lines that are answered; the first that is too long is the last.
std::vector<std::string_view> requestsIn(std::string_view bytes) {
    std::vector<std::string_view> lines;
    while (!bytes.empty()) {
        const std::string_view line = bytes.substr(0, bytes.find('\n'));
        bytes.remove_prefix(std::min(line.size() + 1, bytes.size()));
        if (!line.empty()) {
            lines.push_back(line);
        }
        if (line.size() > StatusServer::maxLine) {
            break;
        }
    }
    return lines;
}

void judge(std::string_view request, const std::string& text) {
    const Json answer = Json::parse(text, nullptr, false);
    require(answer.is_object() && answer.contains("parameters") && answer["parameters"].is_object(),
            "an answer is an object with parameters");
    require(answer.size() == (answer.contains("error") ? 2U : 1U), "it has nothing else");
    const std::string error = answer.value("error", "");
    require(error.empty() || std::ranges::find(errors, error) != errors.end(),
            "an error is one of those that are known");
    require((error == "LineTooLong") == (request.size() > StatusServer::maxLine),
            "a line is too long when it is");
    const Json asked = Json::parse(request, nullptr, false);
    require(asked.is_object() || !error.empty(), "only an object is a request");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Setting& setting = *new Setting; // ends with the process
    const std::string bytes = sent(Tests::textOf(data, size));
    const auto requests = requestsIn(bytes);
    const auto answers = setting.answersTo(bytes);
    require(answers.size() == requests.size(), "every line has one line for an answer");
    for (std::size_t i = 0; i < answers.size(); ++i) {
        judge(requests[i], answers[i]);
    }
    return 0;
}
