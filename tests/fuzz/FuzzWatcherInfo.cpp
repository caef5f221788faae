// SPDX-License-Identifier: Apache-2.0
// Texts that may be the text form of a watcher record.
#include "keyring/KeyringWatcherInfo.h"
#include "platform/zell/Errors.h"
#include "tests/fuzz/Fuzz.h"

#include <sstream>

using Vestrel::KeyringWatcherInfo;
using Vestrel::Tests::require;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KeyringWatcherInfo info;
    try {
        info = KeyringWatcherInfo::decoded(Vestrel::Tests::textOf(data, size));
    } catch (const Zell::AttributeTextError&) {
        return 0;
    }
    std::ostringstream text;
    text << info;
    const auto again = KeyringWatcherInfo::decoded(text.str());
    require(KeyringWatcherInfo::isEq(&info, &again), "a record is read back as it was written");
    return 0;
}
