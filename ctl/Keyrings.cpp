// SPDX-License-Identifier: Apache-2.0
// From the words of the command line to what a diagnosis is made from.
#include "ctl/Keyrings.h"

#include "keymodel/KernelKeyText.h"
#include "keyring/IntegrityKeyringSm.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <stdexcept>

namespace Vestrel {

namespace {

const auto& names = IntegrityKeyringSm::keyringNames;

std::string withDot(const std::string& name) {
    return name.starts_with('.') ? name : "." + name;
}

// Gives the name its dot, or a complaint that has it as it was typed.
std::string dotted(std::string& name) {
    if (std::ranges::find(names, withDot(name)) != names.end()) {
        name = withDot(name);
        return {};
    }
    std::string text = name + " is none of the managed keyrings:";
    for (const char* const managed : names) {
        text += std::string(" ") + managed;
    }
    return text;
}

bool carries(key_serial_t key, const std::string& description) {
    char* text = nullptr;
    if (keyctl_describe_alloc(key, &text) == -1) {
        return false;
    }
    const std::unique_ptr<char, decltype(&std::free)> holder(text, &std::free);
    return KernelKeyText(text).description == description;
}

} // namespace

void addKeyring(CLI::App& verb, std::string& keyring) {
    verb.add_option("KEYRING", keyring, "A managed keyring, such as .ima")
        ->required()
        ->transform(CLI::Validator(dotted, ""));
}

void addOptionalKeyring(CLI::App& verb, std::string& keyring) {
    verb.add_option("KEYRING", keyring, "A managed keyring, such as .ima; all of them without it")
        ->transform(CLI::Validator(dotted, ""));
}

void addIssuers(CLI::App& verb, std::vector<std::string>& issuers) {
    verb.add_option("--issuer", issuers,
                    "File with certificates of trusted issuers, to verify signatures with; may be "
                    "given several times")
        ->option_text("FILE") // not "FILE ...": one for each time it is given
        ->allow_extra_args(false);
}

Surroundings surroundings(const std::vector<std::string>& issuers) {
    Surroundings surroundings{kernelView(names), {}, std::time(nullptr)};
    surroundings.stock.directoriesAdd(names);
    for (const std::string& path : issuers) {
        if (!surroundings.stock.fileAdd(path)) {
            const int error = errno; // before anything allocates
            std::string what = "issuer " + path + ": ";
            what += error == EBADMSG ? "no certificate in it" : std::strerror(error);
            throw std::runtime_error(what);
        }
    }
    return surroundings;
}

std::vector<key_serial_t> keysOf(const std::string& keyring, const std::string& description) {
    const key_serial_t serial = find_key_by_type_and_desc("keyring", keyring.c_str(), 0);
    void* buffer = nullptr;
    // -1 would name the caller's own thread keyring from here on.
    const int bytes = serial == -1 ? -1 : keyctl_read_alloc(serial, &buffer);
    if (bytes == -1) {
        return {};
    }
    const std::unique_ptr<void, decltype(&std::free)> holder(buffer, &std::free);
    std::vector<key_serial_t> keys(static_cast<std::size_t>(bytes) / sizeof(key_serial_t));
    if (!keys.empty()) {
        std::memcpy(keys.data(), buffer, keys.size() * sizeof(key_serial_t));
    }
    std::erase_if(keys, [&](key_serial_t key) { return !carries(key, description); });
    return keys;
}

} // namespace Vestrel
