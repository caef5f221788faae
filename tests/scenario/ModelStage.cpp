// SPDX-License-Identifier: Apache-2.0
// Has the model judge certificates as the kernel does.
#include "tests/scenario/ModelStage.h"

#include "keymodel/CertificateDescription.h"
#include "tests/scenario/Rings.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Vestrel::Tests {

namespace {

constexpr const char* holder = "held";
constexpr std::size_t forgetOnceIn = 12;

Bytes copied(KeyService::Bytes bytes) {
    return {bytes.begin(), bytes.end()};
}

} // namespace

const Contents& ModelStage::contents() const {
    static const auto trusted = CertificateAuthority::generate();
    static const Contents contents(trusted, CertificateAuthority::generate(),
                                   certificateDescription(trusted.certificate()));
    return contents;
}

ModelStage::ModelStage(std::uint64_t seed) : random_(seed) {
    calls.pause();
    keys.describeWith([this](KeyService::Bytes payload) {
        const Content* const content = contents().ofPayload(copied(payload));
        return content == nullptr ? std::string() : content->description;
    });
    keys.judgeWith([this](KeyService::Bytes payload) {
        const Content* const content = contents().ofPayload(copied(payload));
        return content == nullptr ? EBADMSG : content->refusal;
    });
    keys.addKey(".builtin_trusted_keys", contents().at("root").description);
    keys.link(".secondary_trusted_keys", keys.serialOf(".builtin_trusted_keys"));
    keys.link(".secondary_trusted_keys", keys.serialOf(".machine"));
    keys.keyring(holder);
    for (const std::string& name : Contents::heldNames()) {
        held_[name] = keys.addKey(holder, contents().at(name).description);
    }
    onTrace = [this](const std::string&) { forgetKeysPerhaps(); };
}

void ModelStage::forgetKeysPerhaps() {
    if (random_() % forgetOnceIn == 0) {
        keys.collectGarbage();
    }
}

Members ModelStage::members(const std::string& name) const {
    Members members;
    const std::vector<key_serial_t> serials = keys.keysOf(name);
    const std::vector<std::string> descriptions = keys.descriptionsOf(name);
    for (std::size_t i = 0; i < serials.size(); ++i) {
        const bool isNested = descriptions[i].starts_with(".");
        if (!isNested) {
            members[serials[i]] = descriptions[i];
        }
    }
    return members;
}

std::vector<std::string> ModelStage::messagesTaken() {
    auto taken = std::exchange(messages, {});
    StateMachineTest::clear();
    return taken;
}

// The model lets a test change every keyring; the kernel refuses other hands what it refuses us.
int ModelStage::changed(const std::string& keyring, const std::function<void()>& change) const {
    if (!std::ranges::find(rings, keyring, &Ring::keyring)->isWritable) {
        return EACCES;
    }
    change();
    return 0;
}

int ModelStage::add(const std::string& keyring, const Content& content) {
    return changed(keyring, [&] { keys.addKey(keyring, content.description); });
}

int ModelStage::link(const std::string& keyring, key_serial_t key) {
    return changed(keyring, [&] { keys.link(keyring, key); });
}

int ModelStage::unlink(const std::string& keyring, key_serial_t key) {
    return changed(keyring, [&] { keys.unlink(keyring, key); });
}

int ModelStage::clear(const std::string& keyring) {
    return changed(keyring, [&] { keys.clear(keyring); });
}

void ModelStage::loop() {
    dispatch();
}

void ModelStage::restart() {
    stop();
    start(true);
}

} // namespace Vestrel::Tests
