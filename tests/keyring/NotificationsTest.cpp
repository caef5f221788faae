// SPDX-License-Identifier: Apache-2.0
// The drain of a keyring's watch queue and what each notification does.
#include "platform/brisklog/Brisklog.h"
#include "tests/keyring/FileTest.h"

#include <array>
#include <cstring>

namespace Vestrel::Tests {

namespace {

constexpr unsigned meta = 0;
constexpr unsigned key = 1;
constexpr unsigned linked = 2;
constexpr unsigned unlinked = 3;

class Notifications : public FileTest {
protected:
    void handle() { sm->handleKeyringWatch(".ima"); }

    int readFd() const { return sm->watcherInfos(".ima").readFd; }

    NotificationRecord record(unsigned type, unsigned subtype, key_serial_t aux = 0) const {
        return notificationRecord(type, subtype, 1, static_cast<std::uint32_t>(ring()),
                                  static_cast<std::uint32_t>(aux));
    }

    // Posts the record and handles it; forgets traces and calls of before.
    void post(const NotificationRecord& posted) {
        clear();
        keys.post(".ima", posted);
        handle();
    }

    // What is traced of one record: `lines` behind the reading and the two first lines.
    static TraceLines ofRecord(unsigned type, unsigned subtype, const TraceLines& lines,
                               unsigned length = 16) {
        return joined({{"5 handleKeyringWatch: .ima", "5 handleKeyringWatch: Read 16 bytes",
                        "5 handleKeyringWatch: Received notification of type " +
                            std::to_string(type) + ", subType " + std::to_string(subtype),
                        "5 handleKeyringWatch: Length of notification: " + std::to_string(length)},
                       lines,
                       {"5 handleKeyringWatch: No more to read"}});
    }

    std::string keyLine(const std::string& subtype, const std::string& aux) const {
        return "5 handleKeyringWatch: Received notification for keyring: " + text(ring()) +
               ", subType: " + subtype + ", keyId: " + aux;
    }

    void keep(key_serial_t serial, const std::string& description) {
        keyColl()->keyIs({serial, description, "asymmetric"});
    }

    const TraceLines nothingToRead_{"5 handleKeyringWatch: .ima",
                                    "5 handleKeyringWatch: No more to read"};
};

TEST_F(Notifications, AreReadUntilThereAreNoMore) {
    handle();
    EXPECT_EQ(traces(), nothingToRead_);
    EXPECT_EQ(calls.calls(), Texts{"read " + text(readFd()) + " 16"});
}

TEST_F(Notifications, AreReadOneAtATimeInOneCall) {
    keys.addKey(".ima", "one");
    keys.addKey(".ima", "two");
    clear();
    handle();
    const std::string reading = "read " + text(readFd()) + " 16";
    EXPECT_EQ(calls.calls(), (Texts{reading, reading, reading}));
    EXPECT_EQ(recorded().size(), 2U);
}

TEST_F(Notifications, AreNotReadWithoutAnEntry) {
    const auto kept = sm->keyringWatchFileDescriptorsDel(".ima");
    clear();
    handle();
    sm->handleKeyringWatch(".unknown");
    EXPECT_EQ(traces(), TraceLines{});
    EXPECT_EQ(calls.calls(), Texts{});
}

TEST_F(Notifications, AreNotReadWithoutADescriptorNumber) {
    const auto descriptor = sm->keyringWatchFileDescriptors().value(".ima");
    descriptor->descriptorIs(-1);
    clear();
    handle();
    EXPECT_EQ(traces(), TraceLines{});
    EXPECT_EQ(calls.calls(), Texts{});
}

TEST_F(Notifications, EndWithAReadError) {
    keys.addKey(".ima", "one");
    calls.feedReadError(readFd(), EIO);
    handle();
    EXPECT_EQ(traces(), (TraceLines{"5 handleKeyringWatch: .ima",
                                    "1 handleKeyringWatch: read: Input/output error"}));
    EXPECT_EQ(recorded(), Serials{});
    EXPECT_TRUE(sm->keyringWatchFileDescriptors().has(".ima"));
    dispatch();
    EXPECT_EQ(recorded(), Serials{newest()});
}

TEST_F(Notifications, EndWithAReadOfNothing) {
    keys.addKey(".ima", "one");
    calls.feedReadEnd(readFd());
    handle();
    EXPECT_EQ(traces(), TraceLines{"5 handleKeyringWatch: .ima"});
    EXPECT_EQ(recorded(), Serials{});
}

class ShortRead : public Notifications, public testing::WithParamInterface<std::size_t> {};

TEST_P(ShortRead, IsSkippedAndTheNextReadProceeds) {
    keys.addKey(".ima", "one");
    clear();
    calls.feedRead(readFd(), std::string(GetParam(), '\1'));
    handle();
    const TraceLines lines = traces();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[1], "5 handleKeyringWatch: Read " + std::to_string(GetParam()) + " bytes");
    EXPECT_EQ(lines[2], "5 handleKeyringWatch: Read too few bytes for a valid notification");
    EXPECT_EQ(lines[3], "5 handleKeyringWatch: Read 16 bytes");
    EXPECT_EQ(recorded(), Serials{newest()});
}

INSTANTIATE_TEST_SUITE_P(Bytes, ShortRead, testing::Values(1U, 8U, 15U));

TEST_F(Notifications, OfALossThatTheKernelTellsIsSkippedAsTooShort) {
    for (int i = 0; i < 257; ++i) {
        keys.post(".ima", record(key, 7));
    }
    clear();
    handle();
    EXPECT_TRUE(traced("5 handleKeyringWatch: Read 8 bytes"));
    EXPECT_TRUE(traced("5 handleKeyringWatch: Read too few bytes for a valid notification"));
    EXPECT_EQ(traces().back(), "5 handleKeyringWatch: No more to read");
}

TEST_F(Notifications, OfALinkedKeyRecordIt) {
    const key_serial_t serial = keys.addKey(".ima", "one");
    clear();
    handle();
    EXPECT_EQ(traces(), ofRecord(1, 2,
                                 joined({{keyLine("linked", text(serial))},
                                         described(serial, "one"),
                                         {"5 removeDuplicates: " + text(serial) + ", .ima"}})));
    ASSERT_NE(keyColl()->key(serial), nullptr);
    EXPECT_EQ(keyColl()->key(serial)->description, "one");
    EXPECT_EQ(keyColl()->key(serial)->type, "asymmetric");
}

TEST_F(Notifications, OfALinkedKeyForgetOlderKeysOfItsDescription) {
    const key_serial_t serial = keys.addKey(".ima", "one");
    handle();
    keep(11, "one");
    keep(12, "two");
    keep(13, "one");
    post(record(key, linked, serial));
    EXPECT_EQ(recorded(), (Serials{12, serial}));
    const auto forgotten = [](const std::string& old) {
        return TraceLines{"5 removeDuplicates: Removing duplicate " + old,
                          "5 clearKey: " + old + ", .ima"};
    };
    EXPECT_EQ(traces(),
              ofRecord(1, 2,
                       joined({{keyLine("linked", text(serial))},
                               described(serial, "one"),
                               {"5 removeDuplicates: " + text(serial) + ", .ima"},
                               forgotten(text(serial)), // its own, put back behind the others
                               forgotten("11"),
                               forgotten("13")})));
    EXPECT_EQ(keys.calls(), Texts{"keyctl_describe_alloc " + text(serial)});
}

// The queue tells whose the notification is; the keyring that it names is printed and no more.
TEST_F(Notifications, OfALinkedKeyRecordItWhateverKeyringTheyName) {
    const key_serial_t serial = keys.addKey(".ima", "one");
    handle();
    const key_serial_t other = keys.serialOf(".machine");
    for (const key_serial_t named : {other, serial, 987654, 0, -1}) {
        keyColl()->keyDel(serial);
        keep(11, "one");
        NotificationRecord posted = record(key, linked, serial);
        posted.keyId = static_cast<std::uint32_t>(named);
        post(posted);
        EXPECT_TRUE(traced("5 handleKeyringWatch: Received notification for keyring: " +
                           std::to_string(posted.keyId) +
                           ", subType: linked, keyId: " + text(serial)));
        EXPECT_EQ(recorded(), Serials{serial}) << named;
        EXPECT_TRUE(keyColl(".machine")->key().empty());
        EXPECT_EQ(keys.calls(), Texts{"keyctl_describe_alloc " + text(serial)});
    }
}

TEST_F(Notifications, OfAnUnlinkedKeyForgetItWhateverKeyringTheyName) {
    keyColl(".machine")->keyIs({11, "one", "asymmetric"});
    for (const key_serial_t named : {keys.serialOf(".machine"), 11, 987654, 0, -1}) {
        keep(11, "one");
        NotificationRecord posted = record(key, unlinked, 11);
        posted.keyId = static_cast<std::uint32_t>(named);
        post(posted);
        EXPECT_EQ(recorded(), Serials{}) << named;
        EXPECT_NE(keyColl(".machine")->key(11), nullptr);
    }
}

TEST_F(Notifications, OfALinkedKeyThatCannotBeDescribedChangeNothing) {
    keep(987654, "one");
    post(record(key, linked, 987654));
    EXPECT_EQ(traces(), ofRecord(1, 2,
                                 {keyLine("linked", "987654"), "5 getKey: 987654, .ima",
                                  "1 getKey: keyctl_describe_alloc: Required key not available"}));
    EXPECT_EQ(recorded(), Serials{987654});
}

TEST_F(Notifications, OfALinkedKeyringChangeNothing) {
    const key_serial_t nested = keys.keyring("nested");
    post(record(key, linked, nested));
    EXPECT_TRUE(traced("5 getKey: Key is a keyring, ignoring"));
    EXPECT_EQ(recorded(), Serials{});
}

TEST_F(Notifications, OfALinkedKeyWithAnEmptyDescriptionRecordItAllTheSame) {
    const key_serial_t serial = keys.addKey(".ima", "");
    handle();
    EXPECT_EQ(recorded(), Serials{serial});
}

TEST_F(Notifications, OfAnUnlinkedKeyForgetIt) {
    keep(11, "one");
    keep(12, "one");
    post(record(key, unlinked, 11));
    EXPECT_EQ(traces(), ofRecord(1, 3, {keyLine("unlinked", "11"), "5 clearKey: 11, .ima"}));
    EXPECT_EQ(recorded(), Serials{12});
    EXPECT_EQ(keys.calls(), Texts{});
}

TEST_F(Notifications, OfAnUnlinkedKeyThatIsNotOnRecordChangeNothing) {
    keep(12, "one");
    post(record(key, unlinked, 11));
    EXPECT_EQ(recorded(), Serials{12});
}

TEST_F(Notifications, KeepTheFilesMapped) {
    const key_serial_t serial = load("a", "one");
    keys.unlink(".ima", serial);
    handle();
    EXPECT_EQ(recorded(), Serials{});
    EXPECT_EQ(keyColl()->fileToDescription(file("a")), "one");
    EXPECT_EQ(filesOf("one"), Texts{file("a")});
}

TEST_F(Notifications, PrintSerialsUnsigned) {
    NotificationRecord posted = record(key, unlinked, -1);
    posted.keyId = 0xfffffffe;
    post(posted);
    EXPECT_TRUE(traced("5 handleKeyringWatch: Received notification for keyring: 4294967294, "
                       "subType: unlinked, keyId: 4294967295"));
    EXPECT_TRUE(traced("5 clearKey: -1, .ima"));
}

struct OtherSubtype {
    unsigned subtype;
    const char* name;
};

class IgnoredSubtype : public Notifications, public testing::WithParamInterface<OtherSubtype> {};

TEST_P(IgnoredSubtype, ChangesNothing) {
    keep(11, "one");
    post(record(key, GetParam().subtype, 11));
    EXPECT_EQ(traces(), ofRecord(1, GetParam().subtype,
                                 {keyLine(GetParam().name, "11"),
                                  "5 handleKeyringWatch: Ignoring notification"}));
    EXPECT_EQ(recorded(), Serials{11});
    EXPECT_EQ(keys.calls(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(Subtype, IgnoredSubtype,
                         testing::Values(OtherSubtype{0, "instantiated"},
                                         OtherSubtype{1, "updated"}, OtherSubtype{4, "cleared"},
                                         OtherSubtype{5, "revoked"}, OtherSubtype{6, "invalidated"},
                                         OtherSubtype{7, "setattr"}, OtherSubtype{8, ""},
                                         OtherSubtype{255, ""}),
                         [](const auto& subtype) {
                             return "Number" + std::to_string(subtype.param.subtype);
                         });

TEST_F(Notifications, OfAnotherLengthAreRefused) {
    for (const unsigned length : {24U, 0U, 15U, 17U}) {
        const key_serial_t serial = keys.addKey(".ima", "one");
        handle();
        keyColl()->keyDel(serial);
        NotificationRecord posted = record(key, linked, serial);
        posted.info = length;
        post(posted);
        EXPECT_EQ(traces(),
                  ofRecord(1, 2,
                           {"1 handleKeyringWatch: Notification has incorrect message length"},
                           length));
        EXPECT_EQ(recorded(), Serials{});
    }
}

TEST_F(Notifications, OfAnyOtherTypeAreReadOver) {
    keep(11, "one");
    for (const unsigned type : {2U, 0x10001U, 0xffffffU}) {
        post(record(type, unlinked, 11));
        EXPECT_EQ(traces(), ofRecord(type, 3, {}));
        EXPECT_EQ(recorded(), Serials{11});
    }
}

class MetaNotification : public Notifications {
protected:
    // On record are the key of a mapped file and one whose serial the records carry.
    MetaNotification() {
        serial_ = load("a", "one");
        keep(11, "two");
        before_ = sm->watcherInfos(".ima");
    }

    void expectNothingElseDone() const {
        EXPECT_EQ(recorded(), (Serials{serial_, 11}));
        EXPECT_EQ(keyColl()->fileToDescription(file("a")), "one");
        EXPECT_EQ(mappedFiles(), 1U);
        EXPECT_EQ(filesOf("one"), Texts{file("a")});
        const KeyringWatcherInfo now = sm->watcherInfos(".ima");
        EXPECT_TRUE(KeyringWatcherInfo::isEq(&now, &before_));
        const auto* const descriptor = sm->keyringWatchFileDescriptors().find(".ima");
        ASSERT_NE(descriptor, nullptr);
        EXPECT_EQ((*descriptor)->descriptor(), before_.readFd);
        EXPECT_TRUE((*descriptor)->publisher().hasActiveSubscriber());
        EXPECT_EQ(keys.calls(), Texts{});
        EXPECT_EQ(calls.callsOf({"close"}), Texts{});
        EXPECT_EQ(messages, Texts{});
    }

private:
    key_serial_t serial_ = 0;
    KeyringWatcherInfo before_;
};

TEST_F(MetaNotification, OfTheKeyringsRemovalIsTracedOnly) {
    post(record(meta, 0, 11));
    EXPECT_EQ(traces(),
              ofRecord(0, 0, {"1 handleKeyringWatch: Watched keyring .ima has been removed"}));
    expectNothingElseDone();
}

TEST_F(MetaNotification, OfALossIsTracedOnly) {
    post(record(meta, 1, 11));
    EXPECT_EQ(traces(), ofRecord(0, 1, {"1 handleKeyringWatch: Notification was lost"}));
    expectNothingElseDone();
}

// Among them the numbers that link, unlink and clear when the type is that of keys.
TEST_F(MetaNotification, OfAnUnknownSubtypeIsTracedWithItsTypeOnly) {
    for (const unsigned subtype : {2U, 3U, 4U, 11U, 255U}) {
        post(record(meta, subtype, 11));
        EXPECT_EQ(
            traces(),
            ofRecord(0, subtype, {"1 handleKeyringWatch: Unknown meta notification received: 0"}));
        expectNothingElseDone();
    }
}

TEST_F(MetaNotification, IsTakenWhateverItsLength) {
    for (const unsigned length : {0U, 8U, 24U, 127U}) {
        NotificationRecord posted = record(meta, 1, 11);
        posted.info = length;
        post(posted);
        EXPECT_EQ(traces(),
                  ofRecord(0, 1, {"1 handleKeyringWatch: Notification was lost"}, length));
        expectNothingElseDone();
    }
}

TEST_F(Notifications, GoOnAfterOneThatIsRefused) {
    NotificationRecord refused = record(key, linked);
    refused.info = 24;
    keys.post(".ima", refused);
    keys.post(".ima", record(meta, 0));
    keys.post(".ima", record(5, 5));
    const key_serial_t serial = keys.addKey(".ima", "one");
    handle();
    EXPECT_EQ(recorded(), Serials{serial});
}

TEST_F(Notifications, ReachTheKeyringWhoseQueueBecomesReadable) {
    const key_serial_t serial = keys.addKey(".machine", "one");
    clear();
    dispatch();
    EXPECT_EQ(traces().front(), "5 handleKeyringWatch: .machine");
    EXPECT_NE(keyColl(".machine")->key(serial), nullptr);
    EXPECT_EQ(recorded(), Serials{});
}

TEST_F(Notifications, LeaveTheQueueRegisteredWhenTheKeyringIsGone) {
    keys.removeKeyring(".ima");
    clear();
    dispatch();
    EXPECT_TRUE(traced("1 handleKeyringWatch: Watched keyring .ima has been removed"));
    EXPECT_TRUE(sm->keyringWatchFileDescriptors().has(".ima"));
    EXPECT_EQ(calls.callsOf({"close"}), Texts{});
}

TEST_F(Notifications, TraceInTheNameOfTheirHandlerInTheRingToo) {
    Brisklog::eventsDelAll();
    handle();
    const Brisklog::Event last = Brisklog::events().back();
    EXPECT_NE(last.format.find("Vestrel::IntegrityKeyringSm::handleKeyringWatch("),
              std::string::npos);
    EXPECT_EQ(last.values, Texts{"No more to read"});
}

using NotificationsDeathTest = Notifications;

TEST_F(NotificationsDeathTest, EndTheProcessForALinkInAKeyringThatIsNotManaged) {
    keys.addKey(".ima", "one");
    coll->keyringDelAll();
    EXPECT_DEATH(handle(),
                 "IntegrityKeyringSm:[0-9]+: handleKeyringWatch: assertion failed: keyColl\n");
}

} // namespace

} // namespace Vestrel::Tests
