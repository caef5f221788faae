// SPDX-License-Identifier: Apache-2.0
// Time a datagram on each road from the socket to the log.
#include "bench/Roads.h"

#include "bench/Lines.h"
#include "bench/Queue.h"
#include "logmsg/LogCall.h"
#include "logmsg/LogMessages.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/LogFacility.h"
#include "platform/zell/LogSinks.h"
#include "platform/zell/StderrLines.h"
#include "syslog/AppraisalPattern.h"
#include "syslog/IntegritySyslogSm.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel::Bench {

namespace {

constexpr std::size_t datagramsInRound = 10000;
constexpr std::size_t datagramsInQueue = 500;
constexpr std::size_t messageSize = 120; // about that of a log message

using Buffer = std::array<char, IntegritySyslogSm::bufferReadSize + 1>;

void drainBare(int socket) {
    Buffer buffer; // NOLINT: filled by read()
    while (read(socket, buffer.data(), IntegritySyslogSm::bufferReadSize) >= 0) {
    }
}

// A message for every datagram, each written by itself.
void drainAndWrite(int socket) {
    Buffer buffer; // NOLINT: filled by read()
    while (read(socket, buffer.data(), IntegritySyslogSm::bufferReadSize) >= 0) {
        [[maybe_unused]] const auto written = write(STDERR_FILENO, buffer.data(), messageSize);
    }
}

// As the state machine's host does.
void drainByLoop() {
    Zell::ActivityFacility::activityManagerIfAny()->dispatch();
}

// What the state machine does, but for the matcher.
void drainByStandardMatcher(int socket) {
    static const Orvo::Regex pattern = Orvo::Regex::compile(appraisalPattern);
    static LogHandles handles;
    const Zell::StderrLines::Together together;
    Buffer buffer; // NOLINT: filled by read()
    for (;;) {
        const ssize_t got = read(socket, buffer.data(), IntegritySyslogSm::bufferReadSize);
        if (got < 0) {
            return;
        }
        buffer[static_cast<std::size_t>(got)] = '\0';
        const Orvo::String message(buffer.data());
        if (const auto groups = pattern.search(message)) {
            const std::string cause((*groups)[causeGroup]);
            const std::string file((*groups)[fileGroup]);
            const std::string command((*groups)[commandGroup]);
            log(handles.VESTREL_INTEGRITY, Orvo::String("AUDIT_INTEGRITY_DATA"), cause, file,
                command);
        }
    }
}

struct Road {
    const char* name;
    std::function<void()> drain;
    std::vector<double> nanoseconds; // a datagram, by round
};

// stderr is /dev/null while one lives.
class QuietStderr {
public:
    QuietStderr() : kept_(dup(STDERR_FILENO)) {
        const Zell::OwnedFd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
        dup2(null.get(), STDERR_FILENO);
    }

    QuietStderr(const QuietStderr&) = delete;
    QuietStderr& operator=(const QuietStderr&) = delete;

    ~QuietStderr() { dup2(kept_.get(), STDERR_FILENO); }

private:
    Zell::OwnedFd kept_;
};

// Of this thread: a drain never waits, and what else runs on the machine does not count.
double processorNanoseconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double measure(const Road& road, Queue& queue, const Lines& lines) {
    double spent = 0;
    std::size_t handled = 0;
    while (handled < datagramsInRound) {
        const std::size_t queued = queue.fill(lines, datagramsInQueue);
        const double start = processorNanoseconds();
        road.drain();
        spent += processorNanoseconds() - start;
        handled += queued;
    }
    return spent / static_cast<double>(handled);
}

std::vector<double> ratios(const Road& slower, const Road& faster) {
    std::vector<double> values;
    for (std::size_t i = 0; i < slower.nanoseconds.size(); ++i) {
        values.push_back(slower.nanoseconds[i] / faster.nanoseconds[i]);
    }
    return values;
}

// Every round takes each road once, beginning with another one each time.
void runRounds(std::vector<Road>& roads, Queue& queue, const Lines& lines, unsigned rounds) {
    const QuietStderr quiet;
    for (Road& road : roads) {
        measure(road, queue, lines); // warms up
    }
    for (unsigned round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < roads.size(); ++i) {
            Road& road = roads[(round + i) % roads.size()];
            road.nanoseconds.push_back(measure(road, queue, lines));
        }
    }
}

struct Goals {
    double ofRead;
    double overStandard;
};

void compare(Report& report, const std::string& kind, const Lines& lines, Goals goals,
             unsigned rounds) {
    const auto sm = integritySyslogSmFactory();
    if (sm->socketFd() == 0) {
        std::fputs("no socket\n", stderr);
        std::exit(1);
    }
    Queue queue;
    std::vector<Road> roads{
        {"bare read", [&] { drainBare(sm->socketFd()); }, {}},
        {"state machine", drainByLoop, {}},
        {"standard matcher", [&] { drainByStandardMatcher(sm->socketFd()); }, {}},
        {"bare read and write", [&] { drainAndWrite(sm->socketFd()); }, {}}};
    const std::uint64_t before = Zell::LogFacility::messages();
    runRounds(roads, queue, lines, rounds);
    report.title(kind + ", " + std::to_string(Zell::LogFacility::messages() - before) +
                 " messages written");
    for (const Road& road : roads) {
        report.figure(kind + ": " + road.name, spreadOf(road.nanoseconds), "ns a line");
    }
    report.atLeast(kind + ": of bare read", spreadOf(ratios(roads[0], roads[1])), goals.ofRead);
    report.atLeast(kind + ": over standard matcher", spreadOf(ratios(roads[2], roads[1])),
                   goals.overStandard);
}

// What a line costs in drains of several lengths.
void measureDrains(Report& report, const std::string& kind, const Lines& lines) {
    const auto sm = integritySyslogSmFactory();
    Queue queue;
    const QuietStderr quiet;
    for (const std::size_t length : {1U, 10U, 100U, 500U}) {
        std::vector<double> nanoseconds;
        for (unsigned drain = 0; drain < 200; ++drain) {
            const std::size_t queued = queue.fill(lines, length);
            const double start = processorNanoseconds();
            drainByLoop();
            nanoseconds.push_back((processorNanoseconds() - start) / static_cast<double>(queued));
        }
        report.figure(kind + ", drain of " + std::to_string(length) + ": state machine",
                      spreadOf(nanoseconds), "ns a line");
    }
}

} // namespace

void compareRoads(Report& report, unsigned rounds) {
    Zell::LogFacility::sinkIs(Zell::stderrSink());
    compare(report, "kernel lines", linesOf(Kind::other), {0.85, 3.5}, rounds);
    compare(report, "near misses", linesOf(Kind::nearlyRecord), {0.5, 3.5}, rounds);
    compare(report, "records, default limit", linesOf(Kind::record), {0.5, 3.5}, rounds);
    Zell::LogFacility::defaultLimitIs({std::numeric_limits<unsigned>::max(), {}});
    compare(report, "records, all written", linesOf(Kind::record), {0.5, 3.5}, rounds);
    report.title("drains of several lengths");
    measureDrains(report, "kernel lines", linesOf(Kind::other));
    measureDrains(report, "records", linesOf(Kind::record));
}

} // namespace Vestrel::Bench
