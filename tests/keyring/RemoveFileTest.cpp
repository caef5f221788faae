// SPDX-License-Identifier: Apache-2.0
// Dropping a certificate file that has disappeared.
#include "tests/keyring/FileTest.h"

namespace Vestrel::Tests {

namespace {

class RemoveFile : public FileTest {};

TEST_F(RemoveFile, UnlinksTheKeyOfTheLastFile) {
    const key_serial_t key = load("a", "one");
    sm->removeFile(".ima", file("a"));
    EXPECT_EQ(traces(), removed("/etc/keys/ima/a", "one", key));
    EXPECT_EQ(keys.calls(), (Texts{"keyctl_describe " + text(key) + " 0",
                                   "keyctl_unlink " + text(key) + " " + text(ring())}));
    EXPECT_EQ(mappedFiles(), 0U);
    EXPECT_TRUE(keyColl()->descriptionToFile().empty());
    EXPECT_EQ(keys.keysOf(".ima"), Serials{});
}

TEST_F(RemoveFile, LeavesTheRecordOfTheKeyToTheNotification) {
    const key_serial_t key = load("a", "one");
    sm->removeFile(".ima", file("a"));
    EXPECT_EQ(recorded(), Serials{key});
    sm->handleKeyringWatch(".ima");
    EXPECT_EQ(recorded(), Serials{});
}

TEST_F(RemoveFile, UnlinksOneKeyWithTheSecondOfTwoFilesOnly) {
    load("a", "one");
    const key_serial_t key = load("b", "one");
    const key_serial_t other = load("c", "two");
    sm->removeFile(".ima", file("a"));
    EXPECT_EQ(traces(), (TraceLines{"5 removeFile: .ima, " + file("a"),
                                    "5 unmapFileToDescription: .ima, " + file("a") + " <-> one"}));
    EXPECT_EQ(keys.calls(), Texts{});
    EXPECT_EQ(keys.keysOf(".ima"), (Serials{key, other}));
    clear();
    sm->removeFile(".ima", file("b"));
    EXPECT_EQ(traces(), removed(file("b"), "one", key));
    EXPECT_EQ(keys.keysOf(".ima"), Serials{other});
}

TEST_F(RemoveFile, UnlinksNothingBeforeTheKeyIsOnRecord) {
    write(file("a"), "one");
    sm->loadFile(".ima", file("a"));
    clear();
    sm->removeFile(".ima", file("a"));
    EXPECT_EQ(traces().back(),
              "5 unmapFileToDescription: Removing the key matching the old file content");
    EXPECT_EQ(keys.calls(), Texts{});
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"one"});
    EXPECT_EQ(mappedFiles(), 0U);
}

TEST_F(RemoveFile, LeavesTheFileAlone) {
    load("a", "one");
    sm->removeFile(".ima", file("a"));
    EXPECT_EQ(calls.calls(), Texts{});
    EXPECT_TRUE(std::filesystem::exists(file("a")));
}

using RemoveFileDeathTest = RemoveFile;

TEST_F(RemoveFileDeathTest, EndsTheProcessForAFileThatWasNeverMapped) {
    tracesToStandardError();
    EXPECT_DEATH(sm->removeFile(".ima", file("a")),
                 deathBehind("5 removeFile: .ima, " + file("a"), "removeFile", "oldDesc"));
}

TEST_F(RemoveFileDeathTest, EndsTheProcessForAFileThatFailedToLoad) {
    keys.failNext("add_key", EBADMSG);
    load("a", "one");
    EXPECT_DEATH(sm->removeFile(".ima", file("a")), "removeFile: assertion failed: oldDesc\n");
}

TEST_F(RemoveFileDeathTest, EndsTheProcessForAKeyringThatIsNotManaged) {
    tracesToStandardError();
    EXPECT_DEATH(sm->removeFile(".foreign", file("a")),
                 deathBehind("5 removeFile: .foreign, " + file("a"), "removeFile", "keyColl"));
}

} // namespace

} // namespace Vestrel::Tests
