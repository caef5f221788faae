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

TEST_F(Reflected, KeepsUtf8AndWritesOtherBytesInHexadecimal) {
    EXPECT_EQ(asUtf8("plain \xc3\xa4 \xe2\x82\xac \xf0\x9f\x94\x91"),
              "plain \xc3\xa4 \xe2\x82\xac \xf0\x9f\x94\x91");
    EXPECT_EQ(asUtf8("\xff|\xc3|\xc3("), "\\xff|\\xc3|\\xc3(");
    EXPECT_EQ(asUtf8("\xc0\xaf"), "\\xc0\\xaf") << "overlong";
    EXPECT_EQ(asUtf8("\xe0\x80\x80"), "\\xe0\\x80\\x80") << "overlong";
    EXPECT_EQ(asUtf8("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "a surrogate";
    EXPECT_EQ(asUtf8("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond Unicode";
    EXPECT_EQ(asUtf8("\xe2\x82"), "\\xe2\\x82") << "cut short";
    EXPECT_EQ(asUtf8("\xf0\x9f\x94("), "\\xf0\\x9f\\x94(");
    EXPECT_EQ(asUtf8(""), "");
}

TEST_F(Reflected, MakesTextOfAnyNameThatAFileMayHave) {
    coll->keyringIs(".ima")->fileToDescriptionIs("/\xff", "\xfe");
    EXPECT_EQ(reflected(*coll->keyring(".ima"), 1)["fileToDescription"].dump(),
              R"({"/\\xff":"\\xfe"})");
}

} // namespace

} // namespace Vestrel::Tests
