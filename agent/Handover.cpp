// SPDX-License-Identifier: Apache-2.0
// Files that changed between two state machines, and temporary ones.
#include "agent/Handover.h"

#include "agent/WatchedInode.h"
#include "keymodel/TemporarySuffix.h"
#include "survey/KeyringSurvey.h"

#include <sys/stat.h>

#include <cerrno>

namespace Vestrel {

namespace {

// The directory of the keyring; 0 when the state machine does not watch it.
unsigned long watchedBy(const IntegrityKeyringSm& stateMachine, const char* keyringName) {
    const KeyringWatcherInfo info = stateMachine.watcherInfos(keyringName);
    return info && info.inotifyFd != 0 ? watchedInode(info.inotifyFd) : 0;
}

bool isGone(const Orvo::String& path) {
    struct stat status {};

    return stat(path.c_str(), &status) == -1 && errno == ENOENT;
}

void onRecordIs(IntegrityKeyColl& keyColl, const Orvo::String& path,
                const Orvo::String& description) {
    keyColl.descriptionToFileIs(description)->filePathIs(path);
    keyColl.fileToDescriptionIs(path, description);
}

void offRecordIs(IntegrityKeyColl& keyColl, const Orvo::String& path,
                 const Orvo::String& description) {
    keyColl.fileToDescriptionDel(path);
    if (const auto files = keyColl.descriptionToFile(description)) {
        files->filePathDel(path);
        if (files->filePathCount() == 0) {
            keyColl.descriptionToFileDel(description);
        }
    }
}

} // namespace

Handover::Handover(const IntegrityKeyringSm& before) {
    for (const char* const keyringName : IntegrityKeyringSm::keyringNames) {
        const unsigned long inode = watchedBy(before, keyringName);
        if (inode == 0) {
            continue;
        }
        Directory& directory = directories_[keyringName];
        directory.inode = inode;
        const auto keyColl = before.integrityKeyringColl()->keyring(keyringName);
        for (auto file = keyColl->fileToDescription().iterator(); file; ++file) {
            directory.files.push_back({file.key(), *file});
        }
    }
}

void Handover::takenUpBy(IntegrityKeyringSm& stateMachine) const {
    for (const auto& [keyringName, directory] : directories_) {
        if (watchedBy(stateMachine, keyringName) == directory.inode) {
            filesTakenUp(stateMachine, keyringName, directory.files);
        }
    }
}

void Handover::filesTakenUp(IntegrityKeyringSm& stateMachine, const char* keyringName,
                            const std::vector<File>& files) {
    const auto keyColl = stateMachine.integrityKeyringColl()->keyring(keyringName);
    for (const File& file : files) {
        const Orvo::String now = keyColl->fileToDescription(file.path);
        if (recordedDescription(now.view()) == recordedDescription(file.description.view())) {
            continue;
        }
        onRecordIs(*keyColl, file.path, file.description);
        if (isGone(file.path)) {
            stateMachine.removeFile(keyringName, file.path);
        } else {
            stateMachine.modifyFile(keyringName, file.path);
        }
    }
}

void temporaryFilesForget(IntegrityKeyringColl& keyrings) {
    for (const char* const keyringName : IntegrityKeyringSm::keyringNames) {
        const auto keyColl = keyrings.keyring(keyringName);
        if (!keyColl) {
            continue;
        }
        for (auto file = keyColl->fileToDescription().iterator(); file;) {
            const Orvo::String path = file.key();
            const Orvo::String description = *file;
            ++file;
            if (path.view().ends_with(temporarySuffix)) {
                offRecordIs(*keyColl, path, description);
            }
        }
    }
}

} // namespace Vestrel
