// SPDX-License-Identifier: Apache-2.0
// Checks the key service model against what kernels were seen to do, through a shared library.
#include "tests/fakes/KeyService.h"
#include "tests/fakes/Probe.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace Vestrel::Tests {
namespace {

using Serials = std::vector<key_serial_t>;
using Texts = std::vector<std::string>;

/// The errno of a call that has to fail; -1 when it did not.
template <typename Call>
int errorOf(const Call& call) {
    errno = 0;
    return call() == -1 ? errno : -1;
}

Serials serialsIn(const std::vector<std::uint8_t>& payload) {
    Serials serials(payload.size() / sizeof(key_serial_t));
    if (!payload.empty()) {
        std::memcpy(serials.data(), payload.data(), serials.size() * sizeof(key_serial_t));
    }
    return serials;
}

TEST(KeyService, FindsAKeyringByItsName) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    keys.keyring(".machine");
    EXPECT_GT(ima, 0);
    EXPECT_EQ(Probe::findKeyring(".ima"), ima);
    EXPECT_EQ(errorOf([] { return Probe::findKeyring(".im"); }), ENOKEY);
    EXPECT_EQ(keys.calls(), (Texts{"find_key_by_type_and_desc keyring .ima 0",
                                   "find_key_by_type_and_desc keyring .im 0"}));
}

TEST(KeyService, DoesNotFindADeadOrInvisibleKeyring) {
    KeyService keys;
    keys.revoke(keys.keyring(".ima"));
    keys.keyring(".machine", KEY_USR_READ | KEY_USR_WRITE);
    EXPECT_EQ(errorOf([] { return Probe::findKeyring(".ima"); }), EKEYREVOKED);
    EXPECT_EQ(errorOf([] { return Probe::findKeyring(".machine"); }), ENOKEY);
}

TEST(KeyService, ReadsAKeyringAsItsMembersSerials) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    EXPECT_EQ(Probe::readAlloc(ima)->size(), 0U);
    const auto one = keys.addKey(".ima", "one");
    const auto two = keys.addKey(".ima", "two");
    EXPECT_EQ(serialsIn(*Probe::readAlloc(ima)), (Serials{one, two}));
}

TEST(KeyService, ReadsTheScriptedPayloadInstead) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    keys.scriptPayload(".ima", {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(*Probe::readAlloc(ima), (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6}));
}

TEST(KeyService, RefusesToReadAsTheKernelDoes) {
    KeyService keys;
    const auto hidden = keys.keyring(".hidden", KEY_USR_VIEW);
    const auto revoked = keys.keyring(".revoked");
    keys.revoke(revoked);
    const auto key = keys.addKey(".hidden", "k", {"asymmetric", 0, 0, usualKey | KEY_USR_READ});
    const auto read = [](key_serial_t ring) {
        return errorOf([ring] { return Probe::readAlloc(ring) ? 0 : -1; });
    };
    EXPECT_EQ(read(hidden), EACCES);
    EXPECT_EQ(read(revoked), EKEYREVOKED);
    EXPECT_EQ(read(key), EOPNOTSUPP);
    EXPECT_EQ(read(key + 1), ENOKEY);
    EXPECT_EQ(read(0), ENOKEY);
}

TEST(KeyService, DescribesInTheKernelsForm) {
    KeyService keys;
    keys.keyring(".ima");
    const auto key = keys.addKey(".ima", "Vendor: 01;ab", {"asymmetric", 7, 8, 0x00010000});
    const std::string text = "asymmetric;7;8;00010000;Vendor: 01;ab";
    EXPECT_EQ(Probe::describeAlloc(key), text);
    EXPECT_EQ(Probe::describe(key), text);
    EXPECT_EQ(Probe::describeSize(key), static_cast<long>(text.size() + 1));
    EXPECT_EQ(Probe::describeAlloc(keys.serialOf(".ima")), "keyring;0;0;1f0f0000;.ima");
}

TEST(KeyService, RefusesToDescribeAsTheKernelDoes) {
    KeyService keys;
    keys.keyring(".ima");
    const auto revoked = keys.addKey(".ima", "revoked");
    const auto invalid = keys.addKey(".ima", "invalid");
    const auto secret = keys.addKey(".ima", "secret", {"asymmetric", 0, 0, 0});
    keys.revoke(revoked);
    keys.invalidate(invalid);
    EXPECT_EQ(errorOf([&] { return Probe::describeSize(revoked); }), EKEYREVOKED);
    EXPECT_EQ(errorOf([&] { return Probe::describeSize(invalid); }), ENOKEY);
    EXPECT_EQ(errorOf([&] { return Probe::describeSize(secret); }), EACCES);
    EXPECT_EQ(errorOf([&] { return Probe::describeSize(secret + 1); }), ENOKEY);
    EXPECT_EQ(errorOf([&] { return Probe::describeSize(0); }), EINVAL);
    EXPECT_EQ(errorOf([&] { return Probe::describeAlloc(-9) ? 0 : -1; }), EINVAL);
}

TEST(KeyService, NamesTheCallersThreadKeyringByMinusOne) {
    KeyService keys;
    EXPECT_EQ(errorOf([] { return Probe::describeSize(-1); }), ENOKEY);
    keys.threadKeyring();
    EXPECT_EQ(Probe::describeAlloc(-1), "keyring;0;0;1f0f0000;_tid");
    EXPECT_EQ(Probe::describeAlloc(-3), "keyring;0;0;1f0f0000;_ses");
}

TEST(KeyService, AddsAKeyUnderTheDescriptionOfItsPayload) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    keys.describeWith([](auto bytes) { return "size " + std::to_string(bytes.size()); });
    const auto key = Probe::addKey("abc", ima, nullptr);
    EXPECT_EQ(Probe::describeAlloc(key), "asymmetric;0;0;39010000;size 3");
    EXPECT_EQ(keys.payloadOf(key), (std::vector<std::uint8_t>{'a', 'b', 'c'}));
    EXPECT_EQ(keys.keysOf(".ima"), Serials{key});
    EXPECT_EQ(keys.calls().front(), "add_key asymmetric NULL 3 " + std::to_string(ima));
}

TEST(KeyService, CutsADescriptionAtItsFirstNul) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    Probe::addKey(std::string("ab\0cd", 5), ima);
    EXPECT_EQ(keys.descriptionsOf(".ima"), Texts{"ab"});
}

TEST(KeyService, DisplacesAnEqualKeyWhichCanStillBeDescribed) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    const auto first = Probe::addKey("one", ima);
    const auto other = Probe::addKey("two", ima);
    const auto second = Probe::addKey("one", ima);
    EXPECT_GT(second, other);
    EXPECT_EQ(keys.keysOf(".ima"), (Serials{second, other}));
    EXPECT_TRUE(Probe::describeAlloc(first));
    keys.collectGarbage();
    EXPECT_EQ(errorOf([&] { return Probe::describeSize(first); }), ENOKEY);
    EXPECT_TRUE(Probe::describeAlloc(second));
}

TEST(KeyService, RefusesToAddAsTheKernelDoes) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    const auto builtin = keys.keyring(".builtin_trusted_keys", readOnlyKeyring);
    const auto revoked = keys.keyring(".revoked");
    keys.revoke(revoked);
    const auto key = keys.addKey(".ima", "k", {"asymmetric", 0, 0, usualKey | KEY_USR_WRITE});
    keys.judgeWith([](auto) { return EKEYREJECTED; });
    const auto add = [](key_serial_t ring, std::size_t size) {
        return errorOf([=] { return Probe::addKey(std::string(size, 'x'), ring); });
    };
    EXPECT_EQ(add(ima, 3), EKEYREJECTED);
    EXPECT_EQ(add(builtin, 3), EACCES);
    EXPECT_EQ(add(revoked, 3), EKEYREVOKED);
    EXPECT_EQ(add(key, 3), ENOTDIR);
    EXPECT_EQ(add(key + 1, 3), ENOKEY);
    EXPECT_EQ(add(ima, 0), EINVAL);
    EXPECT_EQ(add(ima, 65535), EKEYREJECTED);
    EXPECT_EQ(add(ima, 65536), EMSGSIZE);
    EXPECT_EQ(add(ima, 1024 * 1024 - 1), EMSGSIZE);
    EXPECT_EQ(add(builtin, 1024 * 1024), EINVAL);
    EXPECT_EQ(keys.keysOf(".ima"), Serials{key});
}

TEST(KeyService, UnlinksAKeyWhichCanStillBeDescribed) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    const auto key = keys.addKey(".ima", "one");
    EXPECT_EQ(Probe::unlinkKey(key, ima), 0);
    EXPECT_EQ(keys.keysOf(".ima"), Serials{});
    EXPECT_TRUE(Probe::describeAlloc(key));
    EXPECT_EQ(errorOf([&] { return Probe::unlinkKey(key, ima); }), ENOENT);
    keys.collectGarbage();
    EXPECT_EQ(errorOf([&] { return Probe::unlinkKey(key, ima); }), ENOKEY);
}

TEST(KeyService, UnlinksByDescriptionSoThatADisplacedSerialTakesItsSuccessorOut) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    const auto displaced = Probe::addKey("one", ima);
    Probe::addKey("one", ima);
    EXPECT_EQ(Probe::unlinkKey(displaced, ima), 0);
    EXPECT_EQ(keys.keysOf(".ima"), Serials{});
}

TEST(KeyService, RefusesToUnlinkAsTheKernelDoes) {
    KeyService keys;
    const auto builtin = keys.keyring(".builtin_trusted_keys", readOnlyKeyring);
    const auto key = keys.addKey(".builtin_trusted_keys", "one");
    EXPECT_EQ(errorOf([&] { return Probe::unlinkKey(key, builtin); }), EACCES);
    EXPECT_EQ(errorOf([&] { return Probe::unlinkKey(key, key + 1); }), ENOKEY);
    EXPECT_EQ(errorOf([&] { return Probe::unlinkKey(key, 0); }), EINVAL);
    EXPECT_EQ(keys.keysOf(".builtin_trusted_keys"), Serials{key});
}

TEST(KeyService, ListsANestedKeyringAmongTheMembers) {
    KeyService keys;
    const auto secondary = keys.keyring(".secondary_trusted_keys");
    const auto builtin = keys.keyring(".builtin_trusted_keys", readOnlyKeyring);
    keys.link(".secondary_trusted_keys", builtin);
    EXPECT_EQ(serialsIn(*Probe::readAlloc(secondary)), Serials{builtin});
    EXPECT_EQ(Probe::describeAlloc(builtin), "keyring;0;0;1f0b0000;.builtin_trusted_keys");
}

TEST(KeyService, DropsDeadMembersOnlyWhenGarbageIsCollected) {
    KeyService keys;
    keys.keyring(".ima");
    const auto revoked = keys.addKey(".ima", "revoked");
    const auto alive = keys.addKey(".ima", "alive");
    keys.revoke(revoked);
    EXPECT_EQ(keys.keysOf(".ima"), (Serials{revoked, alive}));
    keys.collectGarbage();
    EXPECT_EQ(keys.keysOf(".ima"), Serials{alive});
}

TEST(KeyService, FailsTheScriptedCallOnly) {
    KeyService keys;
    const auto ima = keys.keyring(".ima");
    keys.failNth("keyctl_read_alloc", 2, ENOMEM);
    EXPECT_TRUE(Probe::readAlloc(ima));
    EXPECT_EQ(keys.pendingFailures(), 1U);
    EXPECT_EQ(errorOf([&] { return Probe::readAlloc(ima) ? 0 : -1; }), ENOMEM);
    EXPECT_TRUE(Probe::readAlloc(ima));
    EXPECT_EQ(keys.pendingFailures(), 0U);
}

TEST(KeyService, NeverUsesASerialAgain) {
    key_serial_t earlier = 0;
    {
        KeyService keys;
        earlier = keys.keyring(".ima");
    }
    KeyService keys;
    EXPECT_GT(keys.keyring(".ima"), earlier);
    EXPECT_EQ(errorOf([&] { return Probe::describeSize(earlier); }), ENOKEY);
}

} // namespace
} // namespace Vestrel::Tests
