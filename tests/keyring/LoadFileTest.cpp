// SPDX-License-Identifier: Apache-2.0
// Loading one certificate file: the key added, the file mapped, the failure told.
#include "platform/brisklog/Brisklog.h"
#include "tests/keyring/FileTest.h"

#include <cstdlib>

namespace Vestrel::Tests {

namespace {

class LoadFile : public FileTest {
protected:
    LoadFile() {
        write(file("a"), "one");
        clear();
    }

    key_serial_t loadA() { return sm->loadFile(".ima", file("a")); }
};

TEST_F(LoadFile, TracesItsStepsAndReturnsTheSerial) {
    const key_serial_t serial = loadA();
    EXPECT_EQ(serial, newest());
    EXPECT_EQ(traces(), loaded("/etc/keys/ima/a", serial, "one"));
    EXPECT_EQ(messages, Texts{});
}

TEST_F(LoadFile, AddsTheKeyToTheKeyringAndThenDescribesIt) {
    const key_serial_t serial = loadA();
    EXPECT_EQ(keys.calls(), (Texts{"find_key_by_type_and_desc keyring .ima 0",
                                   "add_key asymmetric NULL 3 " + text(ring()),
                                   "keyctl_describe_alloc " + text(serial)}));
}

TEST_F(LoadFile, LoadsIntoTheKeyringThatItIsGiven) {
    write(file("b", ".secondary_trusted_keys"), "two");
    sm->loadFile(".secondary_trusted_keys", file("b", ".secondary_trusted_keys"));
    EXPECT_EQ(keys.descriptionsOf(".secondary_trusted_keys"), Texts{"two"});
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{});
    EXPECT_EQ(
        keyColl(".secondary_trusted_keys")->fileToDescription("/etc/keys/secondary_trusted_keys/b"),
        "two");
    EXPECT_EQ(mappedFiles(), 0U);
}

TEST_F(LoadFile, MapsTheFileInBothDirections) {
    loadA();
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "one");
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
}

TEST_F(LoadFile, MapsTheDescriptionOfTheKernelNotThatOfTheFile) {
    keys.describeWith([](KeyService::Bytes) { return "kernel's own;tail"; });
    loadA();
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "kernel's own");
}

TEST_F(LoadFile, LeavesTheRecordOfTheKeyToTheNotification) {
    const key_serial_t serial = loadA();
    EXPECT_EQ(recorded(), Serials{});
    sm->handleKeyringWatch(".ima");
    EXPECT_EQ(recorded(), Serials{serial});
}

struct Refusal {
    int error;
    const char* text;
};

class RefusedLoad : public LoadFile, public testing::WithParamInterface<Refusal> {};

TEST_P(RefusedLoad, IsLoggedWithFileKeyringAndCause) {
    keys.judgeWith([](KeyService::Bytes) { return GetParam().error; });
    EXPECT_EQ(loadA(), -1);
    EXPECT_EQ(messages, Texts{failure("/etc/keys/ima/a", GetParam().text)});
    EXPECT_EQ(traces(), TraceLines{"5 loadFile: .ima, /etc/keys/ima/a"});
}

INSTANTIATE_TEST_SUITE_P(Cause, RefusedLoad,
                         testing::Values(Refusal{ENOKEY, "Required key not available"},
                                         Refusal{EKEYREJECTED, "Key was rejected by service"},
                                         Refusal{EBADMSG, "Bad message"},
                                         Refusal{ENOPKG, "Package not installed"},
                                         Refusal{EACCES, "Permission denied"}),
                         [](const auto& refusal) {
                             return "Errno" + std::to_string(refusal.param.error);
                         });

TEST_F(LoadFile, LogsTheCauseOfAFileThatCannotBeRead) {
    std::filesystem::create_directory(file("d"));
    EXPECT_EQ(sm->loadFile(".ima", file("gone")), -1);
    EXPECT_EQ(sm->loadFile(".ima", file("d")), -1);
    EXPECT_EQ(messages, (Texts{failure(file("gone"), "No such file or directory"),
                               failure(file("d"), "Is a directory")}));
    EXPECT_EQ(keys.calls(), Texts{});
}

TEST_F(LoadFile, HandsTheLogThreeArgumentsInOrder) {
    Texts arguments;
    Zell::LogFacility::sinkIs([&](const Zell::LogMessage& message) {
        for (const Orvo::String& argument : message.arguments) {
            arguments.emplace_back(argument.view());
        }
    });
    keys.failNext("add_key", ENOKEY);
    loadA();
    Zell::LogFacility::sinkIs(nullptr);
    EXPECT_EQ(arguments, (Texts{file("a"), ".ima", "Required key not available"}));
}

TEST_F(LoadFile, KeepsMapsUntouchedWhenTheKernelRefuses) {
    loadA();
    write(file("a"), "two");
    keys.failNext("add_key", ENOKEY);
    EXPECT_EQ(loadA(), -1);
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "one");
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
    EXPECT_EQ(filesOf("two"), Texts{});
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"one"});
}

TEST_F(LoadFile, DoesNotLookForTheCollectionOfAKeyringThatItCannotLoadInto) {
    EXPECT_EQ(sm->loadFile(".unknown", file("a")), -1);
    EXPECT_EQ(messages, Texts{"VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate " +
                              file("a") + " in keyring (.unknown). Required key not available."});
}

TEST_F(LoadFile, MapsNothingWhenTheKeyCannotBeDescribed) {
    keys.failNext("keyctl_describe_alloc", EKEYREVOKED);
    const key_serial_t serial = loadA();
    EXPECT_EQ(serial, newest());
    EXPECT_EQ(traces(), (TraceLines{"5 loadFile: .ima, " + file("a"),
                                    "5 loadFile: Mapping " + text(serial) + " to " + file("a"),
                                    "5 getKey: " + text(serial) + ", .ima",
                                    "1 getKey: keyctl_describe_alloc: Key has been revoked"}));
    EXPECT_EQ(mappedFiles(), 0U);
    EXPECT_TRUE(keyColl()->descriptionToFile().empty());
    EXPECT_EQ(messages, Texts{});
}

TEST_F(LoadFile, NeverMapsAnEmptyDescription) {
    keys.describeWith([](KeyService::Bytes) { return ";behind"; });
    const key_serial_t serial = loadA();
    EXPECT_EQ(serial, newest());
    EXPECT_EQ(mappedFiles(), 0U);
    EXPECT_FALSE(keyColl()->descriptionToFileHas(""));
}

TEST_F(LoadFile, KeepsAnEarlierMappingWhenTheNewKeyCannotBeDescribed) {
    loadA();
    keys.failNext("keyctl_describe_alloc", ENOKEY);
    loadA();
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "one");
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
}

TEST_F(LoadFile, ReplacesAnEarlierDescriptionWithoutLeavingItsSet) {
    loadA();
    write(file("a"), "two");
    loadA();
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "two");
    EXPECT_EQ(filesOf("two"), Texts{file("a")});
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
}

TEST_F(LoadFile, KeepsOneMappingWhenTheSameFileIsLoadedTwice) {
    loadA();
    loadA();
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
    EXPECT_EQ(mappedFiles(), 1U);
}

TEST_F(LoadFile, PutsTwoFilesOfOneDescriptionIntoOneSetAndRecordsTheLaterKey) {
    write(file("b"), "one");
    const key_serial_t first = loadA();
    const key_serial_t second = sm->loadFile(".ima", file("b"));
    EXPECT_NE(first, second);
    EXPECT_EQ(filesOf("one"), (Texts{file("a"), file("b")}));
    sm->handleKeyringWatch(".ima");
    EXPECT_EQ(recorded(), Serials{second});
}

TEST_F(LoadFile, WritesTheSameEventToTheRing) {
    Brisklog::eventsDelAll();
    loadA();
    const Brisklog::Event first = Brisklog::events().at(0);
    EXPECT_EQ(first.level, 5);
    EXPECT_EQ(first.handle, "IntegrityKeyringSm");
    EXPECT_NE(first.format.find("Vestrel::IntegrityKeyringSm::loadFile("), std::string::npos);
    EXPECT_TRUE(first.format.ends_with("): %s%s%s")) << first.format;
    EXPECT_EQ(first.values, (Texts{".ima", ", ", file("a")}));
}

TEST_F(LoadFile, SkipsTracesWhoseLevelIsOff) {
    Zell::traceLevelIs(1);
    keys.failNext("keyctl_describe_alloc", ENOKEY);
    loadA();
    EXPECT_EQ(traces(), TraceLines{"1 getKey: keyctl_describe_alloc: Required key not available"});
}

using LoadFileDeathTest = LoadFile;

TEST_F(LoadFile, TracesItsArgumentsBeforeItLoads) {
    bool hasAdded = true;
    onTrace = [&](const std::string& line) {
        if (line.starts_with("5 loadFile: .ima, ")) {
            hasAdded = !keys.calls().empty();
        }
    };
    sm->loadFile(".ima", file("a"));
    onTrace = nullptr;
    EXPECT_FALSE(hasAdded);
}

TEST_F(LoadFileDeathTest, EndsTheProcessBeforeTheKeyIsDescribedForAKeyringThatIsNotManaged) {
    coll->keyringDelAll();
    onTrace = [](const std::string& line) {
        if (line.starts_with("5 getKey: ")) {
            std::_Exit(0); // no death
        }
    };
    EXPECT_DEATH(sm->loadFile(".ima", file("a")), "loadFile: assertion failed: keyColl");
    onTrace = nullptr;
}

TEST_F(LoadFileDeathTest, EndsTheProcessForAKeyringThatIsNotManaged) {
    keys.keyring(".foreign");
    tracesToStandardError();
    EXPECT_DEATH(sm->loadFile(".foreign", file("a")),
                 deathBehind("5 loadFile: Mapping [0-9]+ to " + file("a"), "loadFile", "keyColl"));
}

} // namespace

} // namespace Vestrel::Tests
