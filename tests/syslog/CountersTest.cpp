// SPDX-License-Identifier: Apache-2.0
// Tests what is counted of the kernel lines.
#include "syslog/KernelMessageCounters.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/syslog/SyslogTest.h"

#include <cerrno>

namespace Vestrel::Tests {

namespace {

class Counters : public SyslogTest {
protected:
    Counters() { KernelMessageCounters::counters() = {}; } // they live as long as the process
};

TEST_F(Counters, CountDatagramsAndThoseThatMatch) {
    start();
    EXPECT_TRUE(send(realLine));
    EXPECT_TRUE(send("kernel: [    1.0] something else"));
    dispatch();
    const KernelMessageCounters& counters = KernelMessageCounters::counters();
    EXPECT_EQ(counters.datagrams, 2);
    EXPECT_EQ(counters.matches, 1);
    EXPECT_EQ(counters.failures, 0);
    EXPECT_EQ(KernelMessageCounters::typeData().value(&counters, 0), Orvo::Value(std::int64_t{2}));
    EXPECT_EQ(KernelMessageCounters::typeData().value(&counters, 1), Orvo::Value(std::int64_t{1}));
}

TEST_F(Counters, CountReadsThatFail) {
    start();
    ASSERT_TRUE(send(realLine));
    calls.failNext("read", EIO);
    sm->handleLog();
    const KernelMessageCounters& counters = KernelMessageCounters::counters();
    EXPECT_EQ(counters.failures, 1);
    EXPECT_EQ(counters.datagrams, 0);
    sm->handleLog();
    EXPECT_EQ(counters.failures, 1) << "a socket that is empty is no failure";
    EXPECT_EQ(counters.datagrams, 1);
    EXPECT_EQ(KernelMessageCounters::typeData().value(&counters, 2), Orvo::Value(std::int64_t{1}));
}

} // namespace

} // namespace Vestrel::Tests
