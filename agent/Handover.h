// SPDX-License-Identifier: Apache-2.0
// What the keyring state machine that goes leaves to the one that comes.
#pragma once

#include "keyring/IntegrityKeyringSm.h"

#include <map>
#include <vector>

namespace Vestrel {

// A start reads what is there and unlinks nothing, so a file that goes while nobody watches would
// leave its key trusted. Taken from the state machine before it is dropped, it lets the next one
// make up for that: with its own operations, and only for directories that are still those which
// were watched. Another directory, or none, under the name says nothing of the files of the first.
class Handover {
public:
    explicit Handover(const IntegrityKeyringSm& before);

    // Files on record that went or hold another certificate now: their keys are unlinked unless
    // other files carry them.
    void takenUpBy(IntegrityKeyringSm& stateMachine) const;

private:
    struct File {
        Orvo::String path;
        Orvo::String description;
    };

    struct Directory {
        unsigned long inode = 0;
        std::vector<File> files;
    };

    static void filesTakenUp(IntegrityKeyringSm& stateMachine, const char* keyringName,
                             const std::vector<File>& files);

    std::map<const char*, Directory> directories_; // those that were watched, by keyring
};

// A start takes temporary files for any others, but nobody sees them go: a certificate that was
// taken from one would stay trusted when the file under its final name is removed. So they are
// taken off the record; their keys stay.
void temporaryFilesForget(IntegrityKeyringColl& keyrings);

} // namespace Vestrel
