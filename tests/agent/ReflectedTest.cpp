// SPDX-License-Identifier: Apache-2.0
// Tests how registered objects become JSON.
#include "agent/Reflected.h"

#include "tests/support/StateMachineTest.h"

namespace Vestrel::Tests {

namespace {

class Reflected : public StateMachineTest {};

TEST_F(Reflected, OpensAKeyringWithItsKeysAndFiles) {
    const auto keyColl = coll->keyringIs(".ima");
    keyColl->keyIs({17, "name: 00", "asymmetric"});
    keyColl->fileToDescriptionIs("/f", "name: 00");
    keyColl->descriptionToFileIs("name: 00")->filePathIs("/f");
    EXPECT_EQ(reflected(*coll, 4).dump(),
              R"({"keyring":{".ima":{)"
              R"("key":{"17":{"serial":17,"description":"name: 00","type":"asymmetric"}},)"
              R"("descriptionToFile":{"name: 00":{"filePath":{"/f":"/f"}}},)"
              R"("fileToDescription":{"/f":"name: 00"}}}})");
}

TEST_F(Reflected, NamesTheTypeOfANodeBelowItsDepth) {
    coll->keyringIs(".ima");
    EXPECT_EQ(reflected(*coll, 0).dump(), R"({"keyring":{".ima":"Vestrel::IntegrityKeyColl"}})");
}

TEST_F(Reflected, ShowsTheStateMachineWithItsRecordsAndDescriptors) {
    start();
    const Json shown = reflected(*sm, 1);
    EXPECT_EQ(shown["watcherInfos"][".ima"]["keyringId"], keys.serialOf(".ima"));
    EXPECT_EQ(shown["inotifyDescriptors"][".ima"]["descriptor"],
              sm->watcherInfos(".ima").inotifyFd);
    EXPECT_EQ(shown["keyringWatchFileDescriptors"][".machine"]["name"], ".machine");
    EXPECT_EQ(shown["integrityKeyringColl"]["keyring"][".ima"], "Vestrel::IntegrityKeyColl");
    EXPECT_TRUE(shown["keyLoader"].is_object());
    sm->keyLoaderDel();
    EXPECT_TRUE(reflected(*sm, 1)["keyLoader"].is_null());
}

} // namespace

} // namespace Vestrel::Tests
