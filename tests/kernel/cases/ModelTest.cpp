// SPDX-License-Identifier: Apache-2.0
// What tests/fakes/KeyService takes for granted, asked of the kernel. Where a case fails here, the
// model is wrong.
#include "tests/kernel/cases/KernelTest.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <stdexcept>
#include <thread>

namespace Vestrel::Tests {
namespace {

using Serials = std::vector<key_serial_t>;

constexpr std::size_t mib = 1024UL * 1024;
constexpr key_serial_t noSuchKey = 0x7fffffff;
constexpr key_serial_t requestorKeyring = -8; // libkeyutils' header has no name for it
constexpr std::uint32_t viewAndSetattr = 0x21210000;
constexpr std::uint32_t allButView = 0x3e3e0000;

// The errno of a call that has to fail; -1 when it did not.
template <typename Call>
int errorOf(const Call& call) {
    errno = 0;
    return call() == -1 ? errno : -1;
}

int describeError(key_serial_t key) {
    return errorOf([=] { return keyctl_describe(key, nullptr, 0); });
}

int readError(key_serial_t key) {
    return errorOf([=] { return keyctl_read(key, nullptr, 0); });
}

int unlinkError(key_serial_t key, key_serial_t ring) {
    return errorOf([=] { return keyctl_unlink(key, ring); });
}

int addError(key_serial_t ring, std::size_t size) {
    const Bytes payload(size, 0x30);
    return errorOf(
        [&] { return add_key("asymmetric", nullptr, payload.data(), payload.size(), ring); });
}

// The errno with which another process does not find a keyring; -1 when it does.
int findErrorElsewhere(const char* name) {
    const pid_t child = fork();
    if (child == 0) {
        const int error = errorOf([=] { return find_key_by_type_and_desc("keyring", name, 0); });
        _exit(error == -1 ? 0 : error);
    }
    int status = 0;
    if (child == -1 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
        throw std::runtime_error("no answer of the other process");
    }
    return WEXITSTATUS(status) == 0 ? -1 : WEXITSTATUS(status);
}

bool eventually(const std::function<bool()>& condition) {
    for (const auto end = std::chrono::steady_clock::now() + deadline; !condition();) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        poll(nullptr, 0, 3);
    }
    return true;
}

class KeyServiceModel : public KernelTest {
protected:
    // A key in .ima that outlives its link there. Only what is in a keyring of the caller's own can
    // be linked by him.
    key_serial_t heldElsewhere(const std::string& name) const {
        const key_serial_t key = ring_.add(certificate(name));
        ima_.link(key);
        return key;
    }

    const Keyring ima_ = Keyring::named(".ima");
    const Keyring builtin_ = Keyring::named(".builtin_trusted_keys");
    const Keyring ring_ = Keyring::made("ring");
};

TEST_F(KeyServiceModel, HasThePermissionsOfTheKernelsKeyrings) {
    EXPECT_EQ(describe(ima_.serial()), "keyring;0;0;1f0f0000;.ima");
    EXPECT_EQ(describe(Keyring::named(".secondary_trusted_keys").serial()),
              "keyring;0;0;1f0f0000;.secondary_trusted_keys");
    EXPECT_EQ(describe(builtin_.serial()), "keyring;0;0;1f0b0000;.builtin_trusted_keys");
    EXPECT_EQ(describe(Keyring::named(".machine").serial()), "keyring;0;0;1f0b0000;.machine");
}

TEST_F(KeyServiceModel, DescribesInTheKernelsForm) {
    const key_serial_t key = ima_.add(certificate("one"));
    const std::string text = "asymmetric;0;0;39010000;" + description("one");
    EXPECT_EQ(describe(key), text);
    EXPECT_EQ(keyctl_describe(key, nullptr, 0), static_cast<long>(text.size() + 1));
}

// A look-up searches the caller's own keyrings first; a new process has none.
TEST_F(KeyServiceModel, FindsALiveAndVisibleKeyringByItsWholeName) {
    EXPECT_EQ(findErrorElsewhere("ring"), -1);
    EXPECT_EQ(findErrorElsewhere(".ima"), -1);
    EXPECT_EQ(findErrorElsewhere("rin"), ENOKEY);
    EXPECT_EQ(findErrorElsewhere(".im"), ENOKEY);
    const Keyring hidden = Keyring::made("hidden");
    ASSERT_EQ(keyctl_setperm(hidden.serial(), allButView), 0);
    EXPECT_EQ(findErrorElsewhere("hidden"), ENOKEY);
    ASSERT_EQ(keyctl_revoke(ring_.serial()), 0);
    EXPECT_EQ(findErrorElsewhere("ring"), EKEYREVOKED);
}

TEST_F(KeyServiceModel, RefusesToReadAsTheKernelDoes) {
    const Keyring hidden = Keyring::made("hidden");
    ASSERT_EQ(keyctl_setperm(hidden.serial(), viewAndSetattr), 0);
    const key_serial_t key = ring_.add(certificate("one"));
    const Keyring revoked = Keyring::made("revoked");
    ASSERT_EQ(keyctl_revoke(revoked.serial()), 0);
    EXPECT_EQ(readError(hidden.serial()), EACCES);
    EXPECT_EQ(readError(revoked.serial()), EKEYREVOKED);
    EXPECT_EQ(readError(key), EOPNOTSUPP);
    EXPECT_EQ(readError(noSuchKey), ENOKEY);
    EXPECT_EQ(readError(0), ENOKEY);
}

TEST_F(KeyServiceModel, RefusesToDescribeAsTheKernelDoes) {
    const key_serial_t revoked = ring_.addUser("revoked");
    const key_serial_t invalid = ring_.addUser("invalid");
    const key_serial_t secret = ring_.addUser("secret");
    ASSERT_EQ(keyctl_revoke(revoked), 0);
    ASSERT_EQ(keyctl_invalidate(invalid), 0);
    ASSERT_EQ(keyctl_setperm(secret, allButView), 0);
    EXPECT_EQ(describeError(revoked), EKEYREVOKED);
    EXPECT_EQ(describeError(invalid), ENOKEY);
    EXPECT_EQ(describeError(secret), EACCES);
    EXPECT_EQ(describeError(noSuchKey), ENOKEY);
    EXPECT_EQ(describeError(0), EINVAL);
    EXPECT_EQ(describeError(-9), EINVAL);
}

// A thread has keyrings of its own, so that nothing here is seen by other cases.
TEST_F(KeyServiceModel, NamesTheCallersOwnKeyringsBelowZero) {
    std::thread([] {
        EXPECT_EQ(describeError(KEY_SPEC_THREAD_KEYRING), ENOKEY);
        EXPECT_EQ(describeError(KEY_SPEC_REQKEY_AUTH_KEY), ENOKEY);
        EXPECT_EQ(describeError(requestorKeyring), ENOKEY);
        EXPECT_EQ(descriptionOf(KEY_SPEC_USER_KEYRING), "_uid.0");
        EXPECT_EQ(descriptionOf(KEY_SPEC_USER_SESSION_KEYRING), "_uid_ses.0");
        EXPECT_EQ(descriptionOf(KEY_SPEC_SESSION_KEYRING), "_uid_ses.0");
        EXPECT_GT(keyctl_get_keyring_ID(KEY_SPEC_THREAD_KEYRING, 1), 0);
        EXPECT_EQ(descriptionOf(KEY_SPEC_THREAD_KEYRING), "_tid");
    }).join();
}

TEST_F(KeyServiceModel, RefusesToAddAsTheKernelDoes) {
    const key_serial_t key = ring_.addUser("no keyring");
    const Keyring revoked = Keyring::made("revoked");
    ASSERT_EQ(keyctl_revoke(revoked.serial()), 0);
    EXPECT_EQ(addError(builtin_.serial(), 3), EACCES);
    EXPECT_EQ(addError(revoked.serial(), 3), EKEYREVOKED);
    EXPECT_EQ(addError(key, 3), ENOTDIR);
    EXPECT_EQ(addError(noSuchKey, 3), ENOKEY);
    EXPECT_EQ(addError(0, 3), EINVAL);
}

TEST_F(KeyServiceModel, JudgesAPayloadBySizeFirst) {
    EXPECT_EQ(addError(ima_.serial(), 0), EINVAL);
    EXPECT_EQ(addError(ima_.serial(), 65535), EBADMSG);
    EXPECT_EQ(addError(ima_.serial(), 65536), EMSGSIZE);
    EXPECT_EQ(addError(ima_.serial(), mib - 1), EMSGSIZE);
    EXPECT_EQ(addError(ima_.serial(), mib), EINVAL);
    EXPECT_EQ(addError(builtin_.serial(), mib), EINVAL);
    EXPECT_EQ(addError(builtin_.serial(), 65536), EACCES);
    EXPECT_EQ(ima_.keys(), Serials{});
}

TEST_F(KeyServiceModel, DisplacesAnEqualKeyUnderANewSerial) {
    const key_serial_t first = ima_.add(certificate("one"));
    const key_serial_t other = ima_.add(certificate("other"));
    const key_serial_t second = ima_.add(certificate("one"));
    EXPECT_NE(first, second);
    Serials expected{other, second};
    Serials found = ima_.keys();
    std::ranges::sort(expected);
    std::ranges::sort(found);
    EXPECT_EQ(found, expected);
    EXPECT_TRUE(eventually([&] { return describeError(first) == ENOKEY; }));
    EXPECT_NE(describe(second), "");
}

TEST_F(KeyServiceModel, KeepsADisplacedKeyThatIsHeldElsewhere) {
    const key_serial_t first = heldElsewhere("one");
    ima_.add(certificate("one", 2));
    EXPECT_EQ(descriptionOf(first), description("one"));
    EXPECT_EQ(ring_.keys(), Serials{first});
}

TEST_F(KeyServiceModel, ForgetsAnUnlinkedKeyInTheEnd) {
    const key_serial_t key = ima_.add(certificate("one"));
    ima_.unlink(key);
    EXPECT_TRUE(eventually([&] { return describeError(key) == ENOKEY; }));
    EXPECT_EQ(unlinkError(key, ima_.serial()), ENOKEY);
}

TEST_F(KeyServiceModel, DoesNotUnlinkWhatIsNotLinked) {
    const key_serial_t key = heldElsewhere("one");
    ima_.unlink(key);
    EXPECT_EQ(unlinkError(key, ima_.serial()), ENOENT);
}

TEST_F(KeyServiceModel, UnlinksByDescriptionSoThatADisplacedSerialTakesItsSuccessorOut) {
    const key_serial_t displaced = heldElsewhere("one");
    ima_.add(certificate("one", 2));
    EXPECT_EQ(keyctl_unlink(displaced, ima_.serial()), 0);
    EXPECT_EQ(ima_.keys(), Serials{});
    EXPECT_EQ(ring_.keys(), Serials{displaced});
}

TEST_F(KeyServiceModel, RefusesToUnlinkAsTheKernelDoes) {
    const key_serial_t key = ima_.add(certificate("one"));
    EXPECT_EQ(unlinkError(key, builtin_.serial()), EACCES);
    EXPECT_EQ(unlinkError(key, noSuchKey), ENOKEY);
    EXPECT_EQ(unlinkError(key, 0), EINVAL);
    EXPECT_EQ(unlinkError(noSuchKey, ima_.serial()), ENOKEY);
    EXPECT_EQ(unlinkError(0, ima_.serial()), EINVAL);
    EXPECT_EQ(ima_.keys(), Serials{key});
}

TEST_F(KeyServiceModel, ListsNestedKeyringsAmongTheMembers) {
    const auto members = Keyring::named(".secondary_trusted_keys").members();
    EXPECT_EQ(std::ranges::count(members, builtin_.serial()), 1);
    EXPECT_EQ(std::ranges::count(members, Keyring::named(".machine").serial()), 1);
}

TEST_F(KeyServiceModel, EmptiesARevokedKeyring) {
    const key_serial_t key = ring_.addUser("one");
    ASSERT_EQ(keyctl_revoke(ring_.serial()), 0);
    EXPECT_TRUE(eventually([&] { return describeError(key) == ENOKEY; }));
}

TEST_F(KeyServiceModel, LinksNothingDead) {
    const key_serial_t revoked = ring_.addUser("revoked");
    ASSERT_EQ(keyctl_revoke(revoked), 0);
    const Keyring other = Keyring::made("other");
    EXPECT_EQ(errorOf([&] { return keyctl_link(revoked, other.serial()); }), EKEYREVOKED);
    EXPECT_EQ(other.keys(), Serials{});
}

} // namespace
} // namespace Vestrel::Tests
