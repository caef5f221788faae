// SPDX-License-Identifier: Apache-2.0
// What the kernel and the certificate directory say of one keyring at this moment.
#pragma once

#include "keymodel/IntegrityKey.h"

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Vestrel {

// A value, made without any state machine. Errors are numbers of errno, 0 for none.
struct KeyringSurvey {
    std::string keyringName;
    std::string directory;
    S32 serial = 0;                 // of the keyring; 0 when the kernel has none
    int keyringError = 0;           // why it was not found or its members cannot be read
    bool isHidden = false;          // that is for want of rights: others than root see no more
    std::vector<IntegrityKey> keys; // members that are no keyrings and can be described
    std::set<S32> members;          // every serial in it
    int directoryError = 0;         // why the directory cannot be read
    unsigned long directoryInode = 0;
    // Regular files by path, with the description that their certificate's key gets; empty for
    // what is no certificate. Names of temporary files are left out.
    std::map<std::string, std::string> files;

    bool hasKeyOf(std::string_view description) const;
};

// Never blocks, but on a file system that does.
KeyringSurvey surveyed(const std::string& keyringName);

// A description as the records of keys have it: the kernel's text is split at ';', so that a
// description ends there.
std::string recordedDescription(std::string_view description);

} // namespace Vestrel
