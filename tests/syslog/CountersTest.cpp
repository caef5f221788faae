// SPDX-License-Identifier: Apache-2.0
// Tests what is counted of the kernel lines.
#include "syslog/KernelMessageCounters.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/syslog/SyslogTest.h"

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

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
}

TEST_F(Counters, AreReadThroughTheirTypeTable) {
    const Zell::TypeData* const type = Zell::registeredType("Vestrel::KernelMessageCounters");
    ASSERT_EQ(type, &KernelMessageCounters::typeData());
    KernelMessageCounters counters;
    counters.datagrams = 1;
    counters.matches = 2;
    counters.failures = 3;
    std::vector<std::pair<std::string, Orvo::Value>> read;
    for (std::size_t i = 0; i < type->attributes().size(); ++i) {
        read.emplace_back(type->attributes()[i].name, type->value(&counters, i));
    }
    const auto number = [](std::int64_t value) { return Orvo::Value(value); };
    EXPECT_EQ(read,
              (std::vector<std::pair<std::string, Orvo::Value>>{
                  {"datagrams", number(1)}, {"matches", number(2)}, {"failures", number(3)}}));
}

} // namespace

} // namespace Vestrel::Tests
