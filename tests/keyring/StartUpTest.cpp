// SPDX-License-Identifier: Apache-2.0
// Start-up of the keyring state machine, seen from outside.
#include "tests/support/StateMachineTest.h"

namespace Vestrel::Tests {

namespace {

class StartUp : public StateMachineTest {};

TEST_F(StartUp, WatchesTheFourKeyringsInTheirOrder) {
    start(true);
    std::vector<std::string> names;
    for (auto info = sm->watcherInfos().iterator(); info; ++info) {
        names.emplace_back(info.key().view());
    }
    EXPECT_EQ(names, (std::vector<std::string>{".ima", ".secondary_trusted_keys",
                                               ".builtin_trusted_keys", ".machine"}));
}

TEST_F(StartUp, LoadsAFileThatIsRenamedIntoPlace) {
    start();
    write(file("a.integrity-tmp"), "first");
    ASSERT_EQ(rename(file("a.integrity-tmp").c_str(), file("a").c_str()), 0);
    dispatch();
    EXPECT_EQ(keys.descriptionsOf(".ima"), std::vector<std::string>{"first"});
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "first");
    dispatch();
    EXPECT_EQ(keyColl()->key().size(), 1U);
}

} // namespace

} // namespace Vestrel::Tests
