// SPDX-License-Identifier: Apache-2.0
// The comparison of kernel, directory and record.
#include "agent/Drift.h"

#include "agent/WatchedInode.h"
#include "keymodel/TemporarySuffix.h"
#include "keyring/KeyringCounters.h"

#include <cstring>
#include <vector>

namespace Vestrel {

namespace {

constexpr std::size_t namedInASummary = 5;

class Comparison {
public:
    Comparison(const KeyringSurvey& survey, const IntegrityKeyringSm& stateMachine,
               bool eventsWereLost)
        : survey_(survey), info_(stateMachine.watcherInfos(survey.keyringName)),
          keyColl_(stateMachine.integrityKeyringColl()->keyring(survey.keyringName)),
          counters_(KeyringCounters::of(survey.keyringName)), eventsWereLost_(eventsWereLost) {}

    Differences all() {
        if (survey_.serial == 0 && !info_) {
            return {}; // this kernel does not have it
        }
        keyringCompare();
        if (info_ && keyColl_) {
            watchesCompare();
            keysCompare();
            filesCompare();
        }
        return differences_;
    }

private:
    void keyringCompare();
    void watchesCompare();
    void keysCompare();
    void filesCompare();
    void recordedFilesCompare();

    bool isRefused(const std::string& path) const {
        return !eventsWereLost_ && counters_.refused.contains(path);
    }

    void add(const std::string& text) { differences_.insert(survey_.keyringName + ": " + text); }

    static std::string keyText(const IntegrityKey& key) {
        return "key " + std::to_string(key.serial) + " (" + std::string(key.description.view()) +
               ")";
    }

    const KeyringSurvey& survey_;
    const KeyringWatcherInfo info_;
    const Orvo::Ptr<IntegrityKeyColl> keyColl_;
    const KeyringCounters& counters_;
    const bool eventsWereLost_;
    Differences differences_;
};

void Comparison::keyringCompare() {
    if (!info_) {
        add("the kernel has it now");
    } else if (survey_.serial == 0) {
        add(std::string("the kernel does not have it any more: ") +
            std::strerror(survey_.keyringError));
    } else if (survey_.keyringError != 0) {
        add(std::string("its keys cannot be read: ") + std::strerror(survey_.keyringError));
    } else if (survey_.serial != info_.keyringId) {
        add("the kernel has another one under its name");
    }
}

void Comparison::watchesCompare() {
    if (info_.readFd == 0) {
        add("it is not watched");
    }
    const unsigned long watched = info_.inotifyFd == 0 ? 0 : watchedInode(info_.inotifyFd);
    if (watched == 0 || watched != survey_.directoryInode) {
        add("its directory is not watched");
    }
}

void Comparison::keysCompare() {
    if (survey_.keyringError != 0) {
        return;
    }
    for (const IntegrityKey& key : survey_.keys) {
        if (keyColl_->key(key.serial) == nullptr) {
            add(keyText(key) + " is not on record");
        }
    }
    for (auto key = keyColl_->key().iterator(); key; ++key) {
        if (!survey_.members.contains(key->serial)) {
            add(keyText(*key) + " is on record but gone");
        }
    }
}

void Comparison::filesCompare() {
    if (survey_.directoryError != 0) {
        add(std::string("its directory cannot be read: ") + std::strerror(survey_.directoryError));
        return;
    }
    for (const auto& [path, description] : survey_.files) {
        if (!description.empty() && !keyColl_->fileToDescriptionHas(path) && !isRefused(path)) {
            add(path + " is not on record");
        }
    }
    recordedFilesCompare();
}

void Comparison::recordedFilesCompare() {
    for (auto file = keyColl_->fileToDescription().iterator(); file; ++file) {
        const std::string path(file.key().view());
        const auto found = survey_.files.find(path);
        if (path.ends_with(temporarySuffix)) {
            continue;
        }
        if (found == survey_.files.end()) {
            add(path + " is on record but gone");
        } else if (recordedDescription(found->second) != recordedDescription(file->view())) {
            add(path + " is on record as another certificate");
        }
    }
}

} // namespace

Differences differences(const KeyringSurvey& survey, const IntegrityKeyringSm& stateMachine,
                        bool eventsWereLost) {
    return Comparison(survey, stateMachine, eventsWereLost).all();
}

void lostEventsMakeUpFor(const KeyringSurvey& survey, IntegrityKeyringSm& stateMachine) {
    const auto keyColl = stateMachine.integrityKeyringColl()->keyring(survey.keyringName);
    if (survey.directoryError != 0 || !keyColl) {
        return; // a directory that cannot be read says nothing of its files
    }
    std::vector<Orvo::String> gone;
    std::vector<Orvo::String> changed;
    for (auto file = keyColl->fileToDescription().iterator(); file; ++file) {
        const auto found = survey.files.find(std::string(file.key().view()));
        if (file.key().view().ends_with(temporarySuffix)) {
            continue;
        }
        if (found == survey.files.end()) {
            gone.push_back(file.key());
        } else if (recordedDescription(found->second) != recordedDescription(file->view())) {
            changed.push_back(file.key());
        }
    }
    for (const Orvo::String& file : changed) {
        stateMachine.modifyFile(survey.keyringName, file);
    }
    for (const Orvo::String& file : gone) {
        stateMachine.removeFile(survey.keyringName, file);
    }
}

std::string summary(const Differences& differences) {
    std::string text;
    std::size_t named = 0;
    for (const std::string& difference : differences) {
        if (named++ == namedInASummary) {
            text += "; and " + std::to_string(differences.size() - namedInASummary) + " more";
            break;
        }
        text += (text.empty() ? "" : "; ") + difference;
    }
    return text;
}

} // namespace Vestrel
