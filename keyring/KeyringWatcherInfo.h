// SPDX-License-Identifier: Apache-2.0
// The record kept of each watched keyring.
#pragma once

#include "keymodel/IntegrityKey.h"
#include "platform/Export.h"
#include "platform/orvo/String.h"
#include "platform/zell/TypeData.h"

#include <ostream>
#include <string_view>

namespace Vestrel {

// A value that owns nothing: the descriptors are numbers only, which the state machine closes. 0
// means not open or not assigned; a negative number is a descriptor like any other.
struct VESTREL_EXPORT KeyringWatcherInfo {
    Orvo::String keyringName; // with its leading dot; the key of the record
    S32 readFd = 0;           // read end of the keyring's notification pipe
    S32 writeFd = 0;          // write end of that pipe
    S32 keyringId = 0;        // the kernel's serial of the keyring
    S32 keyringWatchId = 0;   // the watch's id on the pipe
    S32 inotifyFd = 0;        // the inotify instance on the certificate directory
    S32 inotifyWatchId = 0;   // the directory's watch in that instance

    KeyringWatcherInfo() = default;

    explicit KeyringWatcherInfo(const Orvo::String& name) : keyringName(name) {}

    // Reads the text form. Throws Zell::AttributeTextError when the text is not the whole text form
    // of a record.
    static KeyringWatcherInfo decoded(std::string_view text);

    // Compares all attributes of two KeyringWatcherInfo objects, in the order of declaration.
    static bool isEq(const void* a, const void* b);

    // False for a record that equals the default one, which is what a lookup yields that finds
    // nothing.
    explicit operator bool() const;

    static const Zell::TypeData& typeData();

    // The text form.
    friend VESTREL_EXPORT std::ostream& operator<<(std::ostream& out,
                                                   const KeyringWatcherInfo& info);
};

} // namespace Vestrel
