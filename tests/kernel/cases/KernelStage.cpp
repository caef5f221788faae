// SPDX-License-Identifier: Apache-2.0
// Has other hands change the kernel's keyrings.
#include "tests/kernel/cases/KernelStage.h"

#include "tests/kernel/cases/KernelTest.h"

#include <cerrno>

namespace Vestrel::Tests {

namespace {

int errorOf(long result) {
    return result == -1 ? errno : 0;
}

} // namespace

const Contents& KernelStage::contents() const {
    static const Contents contents(
        trustedAuthority(), unknownAuthority(),
        descriptionOf(Keyring::named(".builtin_trusted_keys").keys().at(0)));
    return contents;
}

KernelStage::KernelStage() {
    emptyKeyringsAndDirectories();
    provideDirectories();
    // Anything can be linked from a keyring of one's own.
    const Keyring own = Keyring::made("held");
    for (const std::string& name : Contents::heldNames()) {
        own.add(contents().at(name).payload);
    }
    for (const std::string& name : Contents::heldNames()) {
        held_[name] = own.keyOf(contents().at(name).description);
    }
}

KernelStage::~KernelStage() {
    host_.stop();
    emptyKeyringsAndDirectories();
}

Members KernelStage::members(const std::string& name) const {
    Members members;
    for (const key_serial_t key : Keyring::named(name).keys()) {
        members[key] = descriptionOf(key);
    }
    return members;
}

std::vector<std::string> KernelStage::messagesTaken() {
    const auto& all = host_.messages();
    std::vector<std::string> taken(all.begin() + static_cast<std::ptrdiff_t>(messagesSeen_),
                                   all.end());
    messagesSeen_ = all.size();
    return taken;
}

int KernelStage::add(const std::string& keyring, const Content& content) {
    return errorOf(Keyring::named(keyring).tryAdd(content.payload));
}

int KernelStage::link(const std::string& keyring, key_serial_t key) {
    return errorOf(keyctl_link(key, serialOf(keyring)));
}

int KernelStage::unlink(const std::string& keyring, key_serial_t key) {
    return errorOf(keyctl_unlink(key, serialOf(keyring)));
}

int KernelStage::clear(const std::string& keyring) {
    return errorOf(keyctl_clear(serialOf(keyring)));
}

void KernelStage::loop() {
    host_.dispatch();
}

void KernelStage::restart() {
    host_.stop();
    host_.start();
    messagesSeen_ = 0;
}

} // namespace Vestrel::Tests
