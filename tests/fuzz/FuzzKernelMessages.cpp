// SPDX-License-Identifier: Apache-2.0
// Datagrams on the socket for kernel lines, from the socket to the log message.
#include "platform/zell/LogFacility.h"
#include "platform/zell/OwnedFd.h"
#include "syslog/AppraisalPattern.h"
#include "syslog/IntegritySyslogSm.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/PrivateDirectories.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace Vestrel;
using Tests::require;

// The standard matcher, which is the reference, needs a stack that grows with the line.
constexpr std::size_t longestCompared = 1024;

// A name, and arguments.
using Message = std::vector<std::string>;

class Setting {
public:
    Setting() {
        Tests::privateDirectoriesEnter();
        Zell::LogFacility::defaultLimitIs({UINT_MAX, Orvo::Duration(std::chrono::seconds(1))});
        Zell::LogFacility::sinkIs([this](const Zell::LogMessage& message) {
            Message raised{message.descriptor.name};
            for (const Orvo::String& argument : message.arguments) {
                raised.emplace_back(argument.view());
            }
            messages_.push_back(raised);
        });
        stateMachine_ = integritySyslogSmFactory();
        sender_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, IntegritySyslogSm::socketPath, sizeof address.sun_path - 1);
        require(connect(sender_.get(), reinterpret_cast<const sockaddr*>(&address),
                        sizeof address) == 0,
                "the socket is there");
    }

    std::vector<Message> messagesOf(std::string_view datagram) {
        messages_.clear();
        require(::send(sender_.get(), datagram.data(), datagram.size(), 0) ==
                    static_cast<ssize_t>(datagram.size()),
                "the datagram can be sent");
        stateMachine_->handleLog();
        return messages_;
    }

private:
    std::vector<Message> messages_;
    Orvo::Ptr<IntegritySyslogSm> stateMachine_;
    Zell::OwnedFd sender_;
};

std::vector<Message> expected(std::string_view datagram) {
    static const auto pattern = Orvo::Regex::compile(appraisalPattern);
    const std::string line(datagram.substr(0, datagram.find('\0')));
    const auto groups = pattern.searchByPattern(line);
    if (!groups) {
        return {};
    }
    const auto group = [&](std::size_t number) { return std::string((*groups)[number]); };
    return {{"VESTREL_INTEGRITY", "AUDIT_INTEGRITY_DATA", group(causeGroup), group(fileGroup),
             group(commandGroup)}};
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Setting& setting = *new Setting; // ends with the process
    const std::string_view datagram = Tests::textOf(data, size);
    const auto messages = setting.messagesOf(datagram);
    require(messages.size() <= 1, "a datagram makes one message at most");
    if (size <= longestCompared) {
        require(messages == expected(datagram), "the message is the one of the pattern");
    }
    return 0;
}
