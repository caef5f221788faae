// SPDX-License-Identifier: Apache-2.0
// What becomes of .secondary_trusted_keys when other hands clear it. Its links to the trusted
// keyrings are gone until a new boot then: so this case has a machine of its own.
#include "tests/kernel/cases/KernelStage.h"
#include "tests/kernel/cases/KernelTest.h"
#include "tests/scenario/Play.h"

#include <cerrno>

namespace Vestrel::Tests {
namespace {

TEST(ClearedKeyring, TakesNothingMoreAndTheOthersGoOn) {
    if (testing::UnitTest::GetInstance()->test_to_run_count() != 1) {
        GTEST_SKIP() << "no other case can run after it: it has a machine of its own";
    }
    const Steps steps =
        stepsOf("restart; write secondary/a alpha; add secondary beta; write ima/a alpha; loop; "
                "clear secondary; loop; write secondary/b gamma; write secondary/c garbage; loop; "
                "write secondary/a tampered-beta; write ima/b beta; loop; restart; loop; "
                "delete secondary/b; loop");
    Kinds kinds;
    const auto difference = play(
        steps, [](std::uint64_t) { return std::make_unique<KernelStage>(); }, 0, kinds);
    EXPECT_FALSE(difference) << *difference;
    EXPECT_EQ(kinds.count("key clear"), 1U);
    const key_serial_t trusted = Keyring::named(".builtin_trusted_keys").serial();
    EXPECT_EQ(keyctl_link(trusted, Keyring::named(".secondary_trusted_keys").serial()), -1);
    EXPECT_EQ(errno, EACCES);
}

} // namespace
} // namespace Vestrel::Tests
