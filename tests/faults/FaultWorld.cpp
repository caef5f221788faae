// SPDX-License-Identifier: Apache-2.0
// Populates the fault tests' kernel and takes pictures of what the state machine made of it.
#include "tests/faults/FaultWorld.h"

#include <ostream>

namespace Vestrel::Tests {

namespace {

template <class Range>
void list(std::ostream& out, const char* name, const Range& range) {
    out << "\n    " << name << ':';
    for (const auto& member : range) {
        out << ' ' << testing::PrintToString(member);
    }
}

} // namespace

std::ostream& operator<<(std::ostream& out, const KeyringPicture& picture) {
    out << "recorded " << picture.isRecorded << ", inotify " << picture.hasInotify << " followed "
        << picture.isDirectoryFollowed << ", queue " << picture.hasQueue << " followed "
        << picture.isQueueFollowed << ", watch id " << picture.watchId;
    list(out, "watches", picture.kernelWatches);
    list(out, "known", picture.known);
    list(out, "files", picture.files);
    list(out, "in the kernel", picture.inKernel);
    return out << '\n';
}

FaultWorld::FaultWorld() {
    populate();
    startAnew(); // what is made once for the process
    stop();
    loop = nullptr;
    coll->keyringDelAll();
    clear();
    descriptors_ = openDescriptors();
    entities_ = alive();
}

const Texts& FaultWorld::keyringNames() {
    static const Texts names(IntegrityKeyringSm::keyringNames.begin(),
                             IntegrityKeyringSm::keyringNames.end());
    return names;
}

bool FaultWorld::isWritable(const std::string& keyring) {
    return keyring == ".ima" || keyring == ".secondary_trusted_keys";
}

void FaultWorld::populate() {
    for (const std::string& name : keyringNames()) {
        keys.clear(name);
        std::filesystem::remove_all(directory(name));
        std::filesystem::create_directories(directory(name));
        keys.addKey(name, described(fileless(name)));
        keys.addKey(name, described(present(name)));
        put("present", present(name), name);
        if (isWritable(name)) {
            put("missing", missing(name), name);
        }
    }
    keys.collectGarbage();
}

void FaultWorld::startAnew() {
    populate();
    clear();
    start(true);
}

Picture FaultWorld::picture() const {
    Picture all;
    for (const std::string& name : keyringNames()) {
        KeyringPicture& one = all[name];
        const KeyringWatcherInfo info = sm->watcherInfos(name);
        one.isRecorded = static_cast<bool>(info);
        one.hasInotify = info.inotifyFd != 0 && info.inotifyWatchId != 0;
        one.hasQueue = info.readFd != 0 && info.writeFd != 0;
        one.watchId = info.keyringWatchId;
        one.isDirectoryFollowed = sm->inotifyDescriptors().find(name) != nullptr;
        one.isQueueFollowed = sm->keyringWatchFileDescriptors().find(name) != nullptr;
        one.kernelWatches = keys.watchIdsOf(name);
        const auto known = keyColl(name);
        for (auto key = known->key().iterator(); key; ++key) {
            one.known.emplace(key->description.view());
        }
        for (auto file = known->fileToDescription().iterator(); file; ++file) {
            one.files.emplace(file.key().view(), file->view());
        }
        const auto inKernel = keys.descriptionsOf(name);
        one.inKernel.insert(inKernel.begin(), inKernel.end());
    }
    return all;
}

void FaultWorld::endWithNothingLeft() {
    stop();
    loop = nullptr;
    coll->keyringDelAll();
    EXPECT_EQ(openDescriptors(), descriptors_);
    EXPECT_EQ(alive(), entities_);
    EXPECT_EQ(keys.openQueues(), 0U);
    EXPECT_EQ(calls.pending(), 0U) << "the failure has struck";
    EXPECT_EQ(keys.pendingFailures(), 0U) << "the failure has struck";
}

std::vector<std::size_t> FaultWorld::turnsOf(const Texts& calls, const std::string& call) {
    const std::string name = call.substr(0, call.find(' ')) + " ";
    std::vector<std::size_t> turns;
    std::size_t turn = 0;
    for (const std::string& each : calls) {
        turn += each.starts_with(name) ? 1U : 0U;
        if (each.starts_with(name) && each.starts_with(call)) {
            turns.push_back(turn);
        }
    }
    return turns;
}

std::string FaultWorld::failure(const std::string& path, const std::string& keyring, int error) {
    return "VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate " + path + " in keyring (" +
           keyring + "). " + std::strerror(error) + ".";
}

} // namespace Vestrel::Tests
