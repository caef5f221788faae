// SPDX-License-Identifier: Apache-2.0
// The fixture of the syslog state machine's tests.
#include "tests/syslog/SyslogTest.h"

#include "platform/brisklog/Brisklog.h"
#include "platform/zell/LogSinks.h"
#include "platform/zell/TraceHandle.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace Vestrel::Tests {

namespace fs = std::filesystem;

Texts openDescriptors() {
    Texts numbers;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        numbers.push_back(entry.path().filename());
    }
    std::ranges::sort(numbers);
    return numbers;
}

std::string integrityMessage(std::string_view cause, std::string_view file,
                             std::string_view command) {
    return "VESTREL_INTEGRITY: Integrity error of type AUDIT_INTEGRITY_DATA (" +
           std::string(cause) + "), for file " + std::string(file) + ", invoked by " +
           std::string(command);
}

SyslogTest::SyslogTest() : daemon_(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    fs::create_directories(fs::weakly_canonical(path).parent_path());
    fs::remove_all(path);
    Zell::traceLevelIs(5);
    Zell::traceSinkIs([this](const Zell::TraceLine& line) {
        traces.push_back(std::to_string(line.level) + " " + std::string(line.text));
    });
    Zell::LogFacility::sinkIs(
        [this](const Zell::LogMessage& message) { messages.push_back(Zell::logLine(message)); });
    Zell::LogFacility::clockIs([this] { return now; });
    Zell::LogFacility::defaultLimitIs({});
    clear();
}

SyslogTest::~SyslogTest() {
    sm = nullptr;
    Zell::ActivityFacility::activityManagerConfig().useEpollIs(false);
    Zell::traceSinkIs(nullptr);
    Zell::traceLevelIs(1);
    Zell::LogFacility::sinkIs(nullptr);
    Zell::LogFacility::clockIs(nullptr);
    Brisklog::eventsDelAll();
    fs::remove_all(path);
}

void SyslogTest::start(bool keep) {
    sm = integritySyslogSmFactory();
    if (!keep) {
        clear();
    }
}

bool SyslogTest::send(std::string_view datagram) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    return sendto(daemon_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&address),
                  sizeof(address)) == static_cast<ssize_t>(datagram.size());
}

std::ptrdiff_t SyslogTest::drains() const {
    return std::ranges::count(traces, "5 handleLog: ");
}

std::ptrdiff_t SyslogTest::linesHandled() const {
    return std::ranges::count(traces, "5 processKernelMsg: ");
}

std::string SyslogTest::onSocket(const std::string& call, const std::string& rest) const {
    return call + " " + std::to_string(sm->socketFd()) + rest;
}

void SyslogTest::clear() {
    traces.clear();
    messages.clear();
    calls.clear();
}

} // namespace Vestrel::Tests
