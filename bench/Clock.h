// SPDX-License-Identifier: Apache-2.0
// What was spent since a clock was made.
#pragma once

#include <sys/resource.h>

#include <chrono>
#include <ctime>

namespace Vestrel::Bench {

// Processor time of this thread: what else runs on the machine does not count.
class ProcessorClock {
public:
    double microseconds() const { return now() - start_; }

private:
    static double now() {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
    }

    double start_ = now();
};

// Processor time of the children that have ended.
class ChildrenClock {
public:
    double microseconds() const { return now() - start_; }

private:
    static double now() {
        rusage usage{};
        getrusage(RUSAGE_CHILDREN, &usage);
        return of(usage.ru_utime) + of(usage.ru_stime);
    }

    static double of(const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    }

    double start_ = now();
};

class WallClock {
public:
    double microseconds() const {
        return std::chrono::duration<double, std::micro>(Clock::now() - start_).count();
    }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point start_ = Clock::now();
};

} // namespace Vestrel::Bench
