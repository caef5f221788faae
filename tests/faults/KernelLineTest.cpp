// SPDX-License-Identifier: Apache-2.0
// Looks at the memory that a kernel line takes. The pattern is compiled when the library is loaded,
// and most lines are no records.
#include "platform/orvo/Regex.h"
#include "syslog/IntegritySyslogSm.h"
#include "tests/faults/Allocations.h"
#include "tests/fuzz/AppraisalLines.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

namespace Vestrel::Tests {

namespace {

// Too long to be held against the standard engine, which asks for memory, in builds with checks.
const std::string head(Orvo::Regex::maxCheckedText, '.');

TEST(KernelLine, TakesNoMemoryUnlessItIsARecord) {
    const auto sm = integritySyslogSmFactory();
    const Orvo::String record = head + std::string(realLine);
    const Orvo::String noRecord = head + std::string(realLine) + ".";
    {
        const FailingAllocation next(1, Failing::once);
        EXPECT_NO_THROW(sm->processKernelMsg(noRecord));
        EXPECT_FALSE(FailingAllocation::isReached());
    }
    const FailingAllocation next(1, Failing::once);
    EXPECT_THROW(sm->processKernelMsg(record), std::bad_alloc) << "a message does";
}

} // namespace

} // namespace Vestrel::Tests
