// SPDX-License-Identifier: Apache-2.0
// Keys under descriptions of somebody's choice, through everyone who reads the kernel's text of a
// key. They say the same, but for this: on record a description ends at its first ';'; the serials
// of a description are those of keyrings, too.
#include "ctl/Keyrings.h"
#include "diagnosis/KernelView.h"
#include "keymodel/IntegrityKeyLoader.h"
#include "keymodel/KernelKeyText.h"
#include "keyring/IntegrityKeyringSm.h"
#include "survey/KeyringSurvey.h"
#include "tests/fakes/KeyService.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/PrivateDirectories.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace Vestrel;
using Tests::KeyService;
using Tests::require;

constexpr const char* ring = ".ima";
constexpr std::array names{ring};
constexpr std::array types{"asymmetric", "user", "keyring", "keyrings"};

using Texts = std::vector<std::string>;
using Serials = std::vector<key_serial_t>;

void fieldsJoined(std::string_view text) {
    const KernelKeyText key(text);
    std::string joined;
    for (const std::string_view field : {key.type, key.uid, key.gid, key.permissions}) {
        require(field.find(';') == std::string_view::npos, "a field ends at its delimiter");
        joined.append(field).append(";");
    }
    joined.append(key.description);
    // Of a text with fewer fields, delimiters were added.
    require(joined.starts_with(text) &&
                joined.find_first_not_of(';', text.size()) == std::string::npos,
            "the fields are the text");
}

// It is asked of serials alone, so that one without any keyring serves for all.
IntegrityKeyringSm& stateMachine() {
    static const auto coll = Orvo::makeNode<IntegrityKeyringColl>();
    static auto& made = *new Orvo::Ptr<IntegrityKeyringSm>(integrityKeyringSmFactory(coll));
    return *made;
}

void isReadBy(const std::string& type, const std::string& description) {
    KeyService keys;
    keys.keyring(ring);
    const key_serial_t serial = keys.addKey(ring, description, {.type = type});
    const bool isKeyring = type == "keyring";
    const IntegrityKey expected =
        isKeyring ? IntegrityKey{} : IntegrityKey{serial, recordedDescription(description), type};

    const IntegrityKey recorded = stateMachine().getKey(serial, ring);
    require(IntegrityKey::isEq(&recorded, &expected), "the state machine records the key");

    const KeyringSurvey survey = surveyed(ring);
    require(survey.keys.size() == (isKeyring ? 0 : 1), "a survey has keys only");
    require(isKeyring || IntegrityKey::isEq(&survey.keys[0], &expected),
            "a survey has the key as it is on record");
    require(isKeyring || survey.hasKeyOf(description), "a survey finds the key");

    const KernelView view = kernelView(names);
    require(view.keyrings[0].isWritable, "what is in a keyring does not close it");
    require(view.keyrings[0].keys == (isKeyring ? Texts{} : Texts{description}) &&
                view.keyrings[0].keyrings == (isKeyring ? Texts{description} : Texts{}),
            "a diagnosis has the whole description");

    require(keysOf(ring, description) == Serials{serial}, "the key is found by its description");
    require(keysOf(ring, description + ";").empty(), "it is found by the whole of it only");
}

// A keyring that took over the number of one that is gone.
void isMistakenForAKeyring(const std::string& name) {
    static const int file = memfd_create("key", MFD_CLOEXEC);
    require(pwrite(file, "key", 3, 0) == 3, "the file can be written");
    const Orvo::String path("/proc/self/fd/" + std::to_string(file));
    KeyService keys;
    const key_serial_t former = keys.keyring(ring);
    const auto loader = Orvo::makeNode<IntegrityKeyLoader>();
    require(loader->loadKey(path, ring) > 0, "the loader knows the keyring");
    keys.removeKeyring(ring);
    keys.reuseSerial(former);
    require(keys.keyring(name, Tests::readOnlyKeyring) == former, "the number is another's now");
    const key_serial_t now = keys.keyring(ring);
    const key_serial_t key = loader->loadKey(path, ring);
    require((key > 0) == (now != former), "the keyring of that name gets the key, and no other");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool isPrivate = (Tests::privateDirectoriesEnter(), true);
    require(isPrivate, "no file of this machine is read");
    const std::string_view input = Tests::textOf(data, size);
    fieldsJoined(input);
    if (size == 0) {
        return 0;
    }
    // The kernel's texts have no NUL, and types that it chose itself.
    const std::string type = types[data[0] % types.size()];
    const std::string description(input.substr(1, input.find('\0', 1) - 1));
    isReadBy(type, description);
    isMistakenForAKeyring(description);
    return 0;
}
