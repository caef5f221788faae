// SPDX-License-Identifier: Apache-2.0
// vestrel-bench-drain other|record COUNT: drains so many kernel lines by the state machine and
// prints the nanoseconds of processor time that each took. Built a second time without traces.
#include "bench/Clock.h"
#include "bench/Lines.h"
#include "bench/Queue.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/LogFacility.h"
#include "platform/zell/LogSinks.h"
#include "syslog/IntegritySyslogSm.h"

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string_view>

int main(int argc, char** argv) {
    using namespace Vestrel;
    using namespace Vestrel::Bench;
    if (argc != 3) {
        std::fputs("usage: vestrel-bench-drain other|record COUNT\n", stderr);
        return 2;
    }
    const Lines lines = linesOf(std::string_view(argv[1]) == "record" ? Kind::record : Kind::other);
    const std::size_t count = std::strtoul(argv[2], nullptr, 10);
    Zell::LogFacility::sinkIs(Zell::stderrSink());
    Zell::LogFacility::defaultLimitIs({std::numeric_limits<unsigned>::max(), {}});
    const auto sm = integritySyslogSmFactory();
    const auto loop = Zell::ActivityFacility::activityManager();
    Queue queue;
    double spent = 0;
    for (std::size_t handled = 0; handled < count;) {
        handled += queue.fill(lines, std::min<std::size_t>(count - handled, 500));
        const ProcessorClock clock;
        loop->dispatch();
        spent += clock.microseconds();
    }
    std::printf("%.3f\n", 1000 * spent / static_cast<double>(count));
    return 0;
}
