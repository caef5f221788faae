// SPDX-License-Identifier: Apache-2.0
// rsyslogd and the state machine as processes fed with the same lines.
#include "bench/Peer.h"

#include "bench/Lines.h"
#include "bench/Process.h"
#include "bench/Queue.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/LogFacility.h"
#include "platform/zell/LogSinks.h"
#include "syslog/IntegritySyslogSm.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace Vestrel::Bench {

namespace {

constexpr const char* peerSocket = "/run/vestrel-bench/rsyslog.sock";
constexpr const char* peerConfiguration = "/run/vestrel-bench/rsyslog.conf";
constexpr const char* peerRules = "/run/vestrel-bench/appraisal.rules";
constexpr const char* peerOutput = "/run/vestrel-bench/rsyslog.out";
constexpr const char* ourOutput = "/run/vestrel-bench/vestrel.out";
constexpr const char* errors = "/run/vestrel-bench/errors";

constexpr const char* configuration = R"(module(load="imuxsock" SysSock.Use="off")
module(load="mmnormalize")
template(name="message" type="string" string="VESTREL_INTEGRITY: Integrity error of type AUDIT_INTEGRITY_DATA (%$!cause%), for file %$!name%, invoked by %$!comm%\n")
input(type="imuxsock" Socket="/run/vestrel-bench/rsyslog.sock" RateLimit.Interval="0" UseSpecialParser="off" ParseHostname="off")
action(type="mmnormalize" rulebase="/run/vestrel-bench/appraisal.rules" useRawMsg="on")
if $parsesuccess == "OK" then action(type="omfile" file="/run/vestrel-bench/rsyslog.out" template="message")
)";

constexpr const char* rules = R"(version=2
rule=:kernel: [%-:char-to:]%][%-:char-to:]%] audit: type=1800 audit(%-:char-to:)%): pid=%-:number% uid=%-:number% auid=%-:number% ses=%-:number% op=appraise_data cause=%cause:word% comm="%comm:char-to:"%" name="%name:char-to:"%" dev="%-:char-to:"%" ino=%-:number% res=%-:number% errno=%-:number%
)";

constexpr auto patience = std::chrono::seconds(120);

// A road from a socket to a file of messages.
struct Side {
    std::string name;
    const char* socket;
    const char* output;
    std::unique_ptr<Process> process;
    std::ifstream written{};           // read as far as it was counted
    std::size_t messages = 0;          // counted
    std::vector<double> nanoseconds{}; // a line, by round

    // rsyslogd may change their order, so they are counted.
    bool haveWritten(std::size_t expected) {
        if (!written.is_open()) {
            written.open(output);
        }
        written.clear();
        messages += static_cast<std::size_t>(std::count(std::istreambuf_iterator<char>(written),
                                                        std::istreambuf_iterator<char>(), '\n'));
        return messages >= expected;
    }
};

template <class Condition>
void await(const Condition& condition, const std::string& what) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            std::fprintf(stderr, "%s\n", what.c_str());
            std::exit(1);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// The last line asks for a message, which tells when lines that ask for none are through.
double cost(Side& side, const Lines& lines, std::size_t count, bool eachAsks) {
    constexpr std::string_view last =
        R"(kernel: [    1.000000][    T1] audit: type=1800 audit(1.0:1): pid=1 uid=0 auid=0 ses=0 )"
        R"(op=appraise_data cause=missing-hash comm="last" name="/last" dev="d" ino=1 res=0 errno=0)";
    const std::size_t expected = side.messages + (eachAsks ? count : 0) + 1;
    const double before = side.process->processorNanoseconds();
    BlockingSender sender(side.socket);
    for (std::size_t i = 0; i < count; ++i) {
        sender.send(lines[i % lines.size()]);
    }
    sender.send(last);
    await([&] { return side.haveWritten(expected); }, side.name + " did not write every message");
    return (side.process->processorNanoseconds() - before) / static_cast<double>(count);
}

std::vector<Side> sides() {
    std::filesystem::create_directories("/run/vestrel-bench");
    std::ofstream(peerConfiguration) << configuration;
    std::ofstream(peerRules) << rules;
    std::vector<Side> both;
    both.push_back({"state machine", IntegritySyslogSm::socketPath, ourOutput,
                    std::make_unique<Process>(
                        std::vector<std::string>{"/proc/self/exe", "--serve-lines"}, ourOutput)});
    both.push_back({"rsyslogd", peerSocket, peerOutput,
                    std::make_unique<Process>(std::vector<std::string>{"rsyslogd", "-n", "-f",
                                                                       peerConfiguration, "-i",
                                                                       "/run/vestrel-bench/pid"},
                                              errors)});
    for (const Side& side : both) {
        await([&] { return std::filesystem::is_socket(side.socket); },
              side.name + " did not start");
    }
    return both;
}

struct Comparison {
    Kind kind;
    std::string name;
    double goal; // how many times less than the other side's
};

void compare(Report& report, std::vector<Side>& both, const Comparison& comparison,
             std::size_t count, unsigned rounds) {
    const auto& [kind, name, goal] = comparison;
    const Lines lines = linesOf(kind);
    std::vector<double> ratios;
    for (Side& side : both) {
        side.nanoseconds.clear();
        cost(side, lines, count / 10, kind == Kind::record); // warms up
    }
    for (unsigned round = 0; round < rounds; ++round) {
        for (Side& side : both) {
            side.nanoseconds.push_back(cost(side, lines, count, kind == Kind::record));
        }
        ratios.push_back(both[1].nanoseconds.back() / both[0].nanoseconds.back());
    }
    for (const Side& side : both) {
        report.figure(name + ": process of " + side.name, spreadOf(side.nanoseconds), "ns a line");
    }
    report.atLeast(name + ": less than rsyslogd", spreadOf(ratios), goal);
}

} // namespace

void measurePeer(Report& report, std::size_t lines, unsigned rounds) {
    report.title("processes from socket to file, processor time");
    if (std::system("command -v rsyslogd >/dev/null") != 0) {
        std::puts("rsyslogd is not installed");
        return;
    }
    std::vector<Side> both = sides();
    compare(report, both, {Kind::other, "kernel lines", 4}, lines, rounds);
    compare(report, both, {Kind::record, "records", 3}, lines, rounds);
}

void serveLines() {
    Zell::LogFacility::sinkIs(Zell::stderrSink());
    Zell::LogFacility::defaultLimitIs({std::numeric_limits<unsigned>::max(), {}});
    const auto loop = Zell::ActivityFacility::activityManager();
    [[maybe_unused]] const auto sm = integritySyslogSmFactory(); // NOLINT: kept alive
    std::exit(loop->run());
}

} // namespace Vestrel::Bench
