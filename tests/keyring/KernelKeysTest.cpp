// SPDX-License-Identifier: Apache-2.0
// Tests what the state machine asks the kernel about single keys, and what it forgets of them.
#include "tests/support/StateMachineTest.h"

#include <cerrno>
#include <cstring>

namespace Vestrel::Tests {

namespace {

using Calls = std::vector<std::string>;

class KernelKeys : public StateMachineTest {
protected:
    KernelKeys() {
        start();
        ima = keys.serialOf(".ima");
    }

    // A key in .ima that was recorded by nobody.
    key_serial_t newKey(const std::string& description, const KeyAttributes& attributes = {}) {
        const key_serial_t key = keys.addKey(".ima", description, attributes);
        return key;
    }

    void record(S32 serial, const char* description) {
        keyColl()->keyIs({serial, description, "asymmetric"});
    }

    std::vector<S32> recorded() const {
        std::vector<S32> serials;
        for (auto key = keyColl()->key().iterator(); key; ++key) {
            serials.push_back(key->serial);
        }
        return serials;
    }

    static bool isDefault(const IntegrityKey& key) {
        const IntegrityKey none;
        return IntegrityKey::isEq(&key, &none);
    }

    static std::string number(S32 value) { return std::to_string(value); }

    static std::string failure(const std::string& what, int error) {
        return "1 " + what + ": " + std::strerror(error);
    }

    // The calls that the kernel had seen when this line was traced, of those that follow.
    void callsBefore(const std::string& line, Calls& seen) {
        onTrace = [&, line](const std::string& each) {
            if (each == line) {
                seen = keys.calls();
            }
        };
    }

    // A trace may change it, as any call of the system does.
    void changeErrnoAtEachTrace() {
        onTrace = [](const std::string&) { errno = EIO; };
    }

    key_serial_t ima = 0;
};

using GetKey = KernelKeys;
using ClearKey = KernelKeys;
using UnlinkKey = KernelKeys;
using RemoveDuplicates = KernelKeys;

TEST_F(GetKey, ReturnsWhatTheKernelSays) {
    const key_serial_t serial = newKey("ACME: signing: a0a1");
    const IntegrityKey key = sm->getKey(serial, ".ima");
    const IntegrityKey expected{serial, "ACME: signing: a0a1", "asymmetric"};
    EXPECT_TRUE(IntegrityKey::isEq(&key, &expected));
    EXPECT_EQ(keys.calls(), Calls{"keyctl_describe_alloc " + number(serial)});
    EXPECT_EQ(traces(), (TraceLines{"5 getKey: " + number(serial) + ", .ima",
                                    "5 getKey: keyctl_describe_alloc: "
                                    "asymmetric;0;0;39010000;ACME: signing: a0a1"}));
}

TEST_F(GetKey, TakesTheTypeFromTheFirstAndTheDescriptionFromTheFifthField) {
    const key_serial_t serial = newKey("five", {"user", 2, 3, usualKey});
    const IntegrityKey key = sm->getKey(serial, ".ima");
    EXPECT_EQ(key.type, "user");
    EXPECT_EQ(key.description, "five");
}

TEST_F(GetKey, CutsADescriptionAtItsFirstSemicolon) {
    const IntegrityKey key = sm->getKey(newKey("before;after;end"), ".ima");
    EXPECT_EQ(key.description, "before");
}

TEST_F(GetKey, KeepsEveryOtherByteOfADescription) {
    const std::string odd = " O\"x\n, \xc3\xbc: a0 ";
    EXPECT_EQ(sm->getKey(newKey(odd), ".ima").description, Orvo::String(odd));
}

TEST_F(GetKey, ReturnsTheOtherFieldsOfAKeyWithoutADescription) {
    const key_serial_t serial = newKey("");
    const IntegrityKey key = sm->getKey(serial, ".ima");
    const IntegrityKey expected{serial, "", "asymmetric"};
    EXPECT_TRUE(IntegrityKey::isEq(&key, &expected));
}

TEST_F(GetKey, ReturnsTheDefaultForAKeyring) {
    EXPECT_TRUE(isDefault(sm->getKey(ima, ".ima")));
    EXPECT_EQ(traces(), (TraceLines{"5 getKey: " + number(ima) + ", .ima",
                                    "5 getKey: keyctl_describe_alloc: keyring;0;0;1f0f0000;.ima",
                                    "5 getKey: Key is a keyring, ignoring"}));
}

TEST_F(GetKey, TellsAKeyringOnlyByTheWholeTypeName) {
    EXPECT_EQ(sm->getKey(newKey("d", {"keyring_like", 0, 0, usualKey}), ".ima").type,
              "keyring_like");
    EXPECT_EQ(sm->getKey(newKey("d", {"key", 0, 0, usualKey}), ".ima").type, "key");
}

TEST_F(GetKey, ReturnsTheDefaultForAKeyThatHasJustBeenUnlinked) {
    const key_serial_t serial = newKey("gone");
    keys.unlink(".ima", serial);
    keys.collectGarbage();
    EXPECT_TRUE(isDefault(sm->getKey(serial, ".ima")));
    EXPECT_EQ(traces(), (TraceLines{"5 getKey: " + number(serial) + ", .ima",
                                    failure("getKey: keyctl_describe_alloc", ENOKEY)}));
}

TEST_F(GetKey, TracesTheCauseOfAFailure) {
    const key_serial_t serial = newKey("d");
    keys.failNext("keyctl_describe_alloc", EACCES);
    EXPECT_TRUE(isDefault(sm->getKey(serial, ".ima")));
    EXPECT_EQ(traces(1), TraceLines{failure("getKey: keyctl_describe_alloc", EACCES)});
}

TEST_F(GetKey, TracesItsArgumentsBeforeItAsksTheKernel) {
    const key_serial_t serial = newKey("d");
    Calls seen{"never traced"};
    callsBefore("5 getKey: " + number(serial) + ", .ima", seen);
    sm->getKey(serial, ".ima");
    onTrace = nullptr;
    EXPECT_EQ(seen, Calls{});
}

TEST_F(GetKey, TellsTheCauseWhateverATraceLeavesInErrno) {
    const key_serial_t serial = newKey("d");
    keys.failNext("keyctl_describe_alloc", EACCES);
    changeErrnoAtEachTrace();
    sm->getKey(serial, ".ima");
    onTrace = nullptr;
    EXPECT_EQ(traces(1), TraceLines{failure("getKey: keyctl_describe_alloc", EACCES)});
}

TEST_F(GetKey, AddressesTheKeyBySerialAlone) {
    const key_serial_t serial = newKey("d");
    EXPECT_EQ(sm->getKey(serial, "no such keyring").serial, serial);
    EXPECT_EQ(traces().front(), "5 getKey: " + number(serial) + ", no such keyring");
    EXPECT_TRUE(isDefault(sm->getKey(-1, ".ima")));
    EXPECT_TRUE(traced("5 getKey: -1, .ima"));
}

TEST_F(GetKey, RecordsNothing) {
    sm->getKey(newKey("d"), ".ima");
    EXPECT_TRUE(keyColl()->key().empty());
}

TEST_F(ClearKey, ForgetsTheKeyAndAsksTheKernelNothing) {
    record(7, "d");
    record(8, "d");
    sm->clearKey(7, ".ima");
    EXPECT_EQ(recorded(), std::vector<S32>{8});
    EXPECT_EQ(traces(), TraceLines{"5 clearKey: 7, .ima"});
    EXPECT_EQ(keys.calls(), Calls{});
    EXPECT_EQ(calls.calls(), Calls{});
}

TEST_F(ClearKey, DoesNothingForASerialThatIsNotOnRecord) {
    record(7, "d");
    sm->clearKey(8, ".ima");
    EXPECT_EQ(recorded(), std::vector<S32>{7});
    EXPECT_EQ(traces(), TraceLines{"5 clearKey: 8, .ima"});
}

TEST_F(ClearKey, DoesNothingForAKeyringThatIsNotManaged) {
    record(7, "d");
    sm->clearKey(7, ".other");
    EXPECT_EQ(recorded(), std::vector<S32>{7});
    EXPECT_EQ(traces(), TraceLines{"5 clearKey: 7, .other"});
    EXPECT_FALSE(coll->keyring(".other"));
}

TEST_F(ClearKey, LeavesTheFileMapsAlone) {
    record(7, "d");
    keyColl()->descriptionToFileIs("d")->filePathIs("/f");
    keyColl()->fileToDescriptionIs("/f", "d");
    sm->clearKey(7, ".ima");
    EXPECT_EQ(keyColl()->fileToDescription("/f"), "d");
    EXPECT_TRUE(keyColl()->descriptionToFileHas("d"));
}

TEST_F(UnlinkKey, TakesTheKeyOutOfItsKernelKeyring) {
    const key_serial_t serial = newKey("d");
    record(serial, "d");
    sm->unlinkKey(serial, ".ima");
    EXPECT_TRUE(keys.keysOf(".ima").empty());
    EXPECT_EQ(keys.calls(), (Calls{"keyctl_describe " + number(serial) + " 0",
                                   "keyctl_unlink " + number(serial) + " " + number(ima)}));
    EXPECT_EQ(traces(), (TraceLines{"5 unlinkKey: " + number(serial) + ", .ima",
                                    "5 unlinkKey: Unlinking " + number(serial)}));
    EXPECT_EQ(recorded(), std::vector<S32>{serial}) << "only the notification clears the record";
    dispatch();
    EXPECT_TRUE(recorded().empty());
}

TEST_F(UnlinkKey, UnlinksFromTheKeyringOfTheRecordNotOfAnother) {
    const key_serial_t serial = newKey("d");
    keys.link(".secondary_trusted_keys", serial);
    sm->unlinkKey(serial, ".secondary_trusted_keys");
    EXPECT_EQ(keys.keysOf(".ima"), std::vector<key_serial_t>{serial});
    EXPECT_TRUE(keys.keysOf(".secondary_trusted_keys").empty());
}

TEST_F(UnlinkKey, ReturnsSilentlyWhenTheKeyIsGone) {
    const key_serial_t serial = newKey("gone");
    keys.unlink(".ima", serial);
    keys.collectGarbage();
    sm->unlinkKey(serial, ".ima");
    EXPECT_EQ(traces(), TraceLines{"5 unlinkKey: " + number(serial) + ", .ima"});
    EXPECT_EQ(keys.calls(), Calls{"keyctl_describe " + number(serial) + " 0"});
}

TEST_F(UnlinkKey, TracesWhenTheKernelRefuses) {
    const key_serial_t serial = newKey("d");
    record(serial, "d");
    keys.failNext("keyctl_unlink", EACCES);
    sm->unlinkKey(serial, ".ima");
    EXPECT_EQ(traces(), (TraceLines{"5 unlinkKey: " + number(serial) + ", .ima",
                                    "5 unlinkKey: Unlinking " + number(serial),
                                    failure("unlinkKey: keyctl_unlink", EACCES)}));
    EXPECT_EQ(recorded(), std::vector<S32>{serial});
}

TEST_F(UnlinkKey, TracesItsStepsBeforeItTakesThem) {
    const key_serial_t serial = newKey("d");
    Calls seen{"never traced"};
    callsBefore("5 unlinkKey: " + number(serial) + ", .ima", seen);
    sm->unlinkKey(serial, ".ima");
    EXPECT_EQ(seen, Calls{});
    keys.link(".ima", serial);
    clear();
    callsBefore("5 unlinkKey: Unlinking " + number(serial), seen);
    sm->unlinkKey(serial, ".ima");
    onTrace = nullptr;
    EXPECT_EQ(seen, Calls{"keyctl_describe " + number(serial) + " 0"});
}

TEST_F(UnlinkKey, TellsTheCauseWhateverATraceLeavesInErrno) {
    const key_serial_t serial = newKey("d");
    keys.failNext("keyctl_unlink", EACCES);
    changeErrnoAtEachTrace();
    sm->unlinkKey(serial, ".ima");
    onTrace = nullptr;
    EXPECT_EQ(traces(1), TraceLines{failure("unlinkKey: keyctl_unlink", EACCES)});
}

TEST_F(UnlinkKey, DoesNothingForAKeyringWithoutAWatcher) {
    const key_serial_t serial = newKey("d");
    sm->unlinkKey(serial, ".other");
    EXPECT_EQ(traces(), (TraceLines{"5 unlinkKey: " + number(serial) + ", .other",
                                    "5 unlinkKey: No watcher info for .other"}));
    EXPECT_EQ(keys.calls(), Calls{});
}

TEST_F(UnlinkKey, DoesNothingForAManagedKeyringWhoseWatcherHasNotBeenCreated) {
    const key_serial_t serial = newKey("d");
    coll->keyringIs(".late");
    sm->unlinkKey(serial, ".late");
    EXPECT_TRUE(traced("5 unlinkKey: No watcher info for .late"));
    EXPECT_EQ(keys.calls(), Calls{});
    EXPECT_EQ(keys.keysOf(".ima"), std::vector<key_serial_t>{serial});
}

TEST_F(RemoveDuplicates, ForgetsEveryRecordOfTheDescriptionInTheMapsOrder) {
    record(30, "same");
    record(10, "other");
    record(20, "same");
    sm->removeDuplicates({40, "same", "asymmetric"}, ".ima");
    EXPECT_EQ(recorded(), std::vector<S32>{10});
    EXPECT_EQ(traces(),
              (TraceLines{"5 removeDuplicates: 40, .ima",
                          "5 removeDuplicates: Removing duplicate 30", "5 clearKey: 30, .ima",
                          "5 removeDuplicates: Removing duplicate 20", "5 clearKey: 20, .ima"}));
}

TEST_F(RemoveDuplicates, ForgetsARecordOfTheNewKeysOwnSerial) {
    record(40, "same");
    sm->removeDuplicates({40, "same", "asymmetric"}, ".ima");
    EXPECT_TRUE(recorded().empty());
    EXPECT_TRUE(traced("5 removeDuplicates: Removing duplicate 40"));
}

TEST_F(RemoveDuplicates, ComparesDescriptionsExactlyAndNothingElse) {
    record(40, "Same");
    record(41, "same ");
    record(42, "sam");
    record(43, "");
    sm->removeDuplicates({40, "same", "asymmetric"}, ".ima");
    EXPECT_EQ(recorded(), (std::vector<S32>{40, 41, 42, 43}));
    EXPECT_EQ(traces(), TraceLines{"5 removeDuplicates: 40, .ima"});
    keyColl()->keyIs({44, "same", "user"});
    sm->removeDuplicates({40, "same", "asymmetric"}, ".ima");
    EXPECT_EQ(keyColl()->key(44), nullptr) << "also of another type";
}

TEST_F(RemoveDuplicates, EmptiesAMapThatHoldsNothingElse) {
    for (S32 serial = 1; serial <= 20; ++serial) {
        record(serial, "same");
    }
    sm->removeDuplicates({99, "same", "asymmetric"}, ".ima");
    EXPECT_TRUE(recorded().empty());
    EXPECT_EQ(traces().size(), 1U + 2 * 20);
}

TEST_F(RemoveDuplicates, LeavesTheOlderKeysInTheKernel) {
    const key_serial_t older = newKey("same");
    record(older, "same");
    sm->removeDuplicates({99, "same", "asymmetric"}, ".ima");
    EXPECT_EQ(keys.keysOf(".ima"), std::vector<key_serial_t>{older});
    EXPECT_EQ(keys.calls(), Calls{});
}

TEST_F(RemoveDuplicates, DoesNothingForAKeyringThatIsNotManaged) {
    record(7, "same");
    sm->removeDuplicates({99, "same", "asymmetric"}, ".other");
    EXPECT_EQ(traces(), TraceLines{"5 removeDuplicates: 99, .other"});
    EXPECT_EQ(recorded(), std::vector<S32>{7});
    EXPECT_FALSE(coll->keyring(".other"));
}

TEST_F(RemoveDuplicates, LeavesTheNewestOfTwoLinkedKeysOnRecord) {
    const key_serial_t older = keys.addKey(".ima", "same");
    dispatch();
    const key_serial_t newer = keys.addKey(".ima", "same");
    dispatch();
    EXPECT_NE(older, newer);
    EXPECT_EQ(recorded(), std::vector<S32>{newer});
}

// Two keys for the kernel, which compares what follows the delimiter too.
TEST_F(RemoveDuplicates, WorksOnDescriptionsAsTheyAreOnRecord) {
    keys.addKey(".ima", "cut;one");
    const key_serial_t newer = keys.addKey(".ima", "cut;two");
    dispatch();
    EXPECT_EQ(recorded(), std::vector<S32>{newer});
    EXPECT_EQ(keys.keysOf(".ima").size(), 2U);
}

} // namespace

} // namespace Vestrel::Tests
