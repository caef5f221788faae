// SPDX-License-Identifier: Apache-2.0
// The required behaviour, in the order in which it is required.
#include "tests/scenario/Rules.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Vestrel::Tests {

namespace {

constexpr KeyNumber failed = 0;

std::string onRecord(const std::string& description) {
    return description.substr(0, description.find(';'));
}

// Whether keys of different descriptions make one record, so that the last one stays.
bool someShareARecord(const std::vector<std::pair<std::string, std::string>>& entries) {
    std::map<std::string, std::string> seen;
    return std::ranges::any_of(entries, [&](const auto& entry) {
        const auto [first, isNew] = seen.emplace(onRecord(entry.second), entry.second);
        return first->second != entry.second;
    });
}

std::string loadFailure(const std::string& path, const Ring& ring, int error) {
    return "VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate " + realPath(path) +
           " in keyring (" + ring.keyring + "). " + std::strerror(error) + ".";
}

} // namespace

// --- The kernel ---------------------------------------------------------------------------------

KeyNumber Rules::keyMade(const std::string& description) {
    world_.keys[++world_.lastKey] = {description, false, false};
    return world_.lastKey;
}

// A key takes the place of the one of the same description.
void Rules::keyLinked(KeyNumber key) {
    world_.members[world_.keys.at(key).description] = key;
    if (world_.isRunning) {
        world_.queue.push_back({true, key});
    }
}

// The link is found by the description of the key, whoever holds it; the notice names the key.
bool Rules::keyUnlinked(KeyNumber key) {
    const bool wasLinked = world_.members.erase(world_.keys.at(key).description) != 0;
    if (wasLinked && world_.isRunning) {
        world_.queue.push_back({false, key});
    }
    return wasLinked;
}

// A key that nobody links or holds is there for some milliseconds more, or not.
bool Rules::exists(KeyNumber number) {
    World::Key& key = world_.keys.at(number);
    const auto member = world_.members.find(key.description);
    if (key.isHeld || (member != world_.members.end() && member->second == number)) {
        return true;
    }
    key.isGone = key.isGone || choose_(2) == 1;
    return !key.isGone;
}

// The errno with which loading the file fails, or 0 and the description of its key.
int Rules::refusal(const std::string& path, std::string& description) const {
    const auto [node, error] = tree_.opened(path);
    if (error != 0) {
        return error;
    }
    if (node->kind != Tree::Kind::file) {
        return node->kind == Tree::Kind::directory ? EISDIR : EINVAL;
    }
    const Content& content = contents_.at(node->text);
    if (content.isHandedOver && !ring_.isWritable) {
        return EACCES;
    }
    description = content.description;
    const bool isJudgedByKeys = content.refusal == 0 || content.refusal == EKEYREJECTED;
    return world_.hasLostTrust && isJudgedByKeys ? ENOKEY : content.refusal;
}

void Rules::addedByHand(const Content& content) {
    keyLinked(keyMade(content.description));
}

void Rules::linkedByHand(KeyNumber key) {
    keyLinked(key);
}

void Rules::unlinkedByHand(const std::string& description) {
    const auto member = world_.members.find(description);
    if (member != world_.members.end()) {
        keyUnlinked(member->second);
    }
}

void Rules::clearedByHand() {
    world_.members.clear();
    world_.hasLostTrust = world_.hasLostTrust || ring_.keepsTrust;
}

// --- The state machine --------------------------------------------------------------------------

void Rules::startUp() {
    world_.isRunning = true;
    world_.queue.clear();
    world_.records.clear();
    world_.fileToDescription.clear();
    world_.descriptionToFile.clear();
    std::set<std::string> existing;
    for (const auto& [description, key] : world_.members) {
        world_.records[key] = onRecord(description);
        existing.insert(onRecord(description));
    }
    // In the order of the file system, whatever that is.
    auto entries = certificatesFound();
    const bool isOrderSeen = someShareARecord(entries);
    while (!entries.empty()) {
        const std::size_t at = isOrderSeen ? choose_(entries.size()) : 0;
        const auto [path, description] = entries[at];
        entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(at));
        world_.descriptionToFile[description].insert(path);
        world_.fileToDescription[path] = description;
        if (!existing.contains(description)) {
            loadFile(path);
        }
    }
}

// The certificate files of the directory with their descriptions.
std::vector<Rules::Entry> Rules::certificatesFound() const {
    std::vector<Entry> entries;
    for (const auto& [path, entry] : tree_.entries(ring_.place)) {
        const auto [node, error] = tree_.opened(path);
        if (error != 0 || node->kind != Tree::Kind::file) {
            continue;
        }
        const std::string description = contents_.at(node->text).description;
        if (!description.empty()) {
            entries.emplace_back(path, description);
        }
    }
    return entries;
}

void Rules::loop() {
    if (!world_.isRunning) {
        return;
    }
    const bool bothAreReady = !world_.queue.empty() && !tree_.events(ring_.place).empty();
    if (bothAreReady && choose_(2) == 1) {
        handleKeyringWatch();
    }
    handleInotify();
    handleKeyringWatch();
}

void Rules::handleInotify() {
    std::map<std::uint32_t, std::string> pendingMoves;
    for (const Event& each : tree_.events(ring_.place)) {
        event(each, pendingMoves);
    }
    for (const auto& [cookie, path] : pendingMoves) {
        removeFile(path);
    }
}

void Rules::event(const Event& event, std::map<std::uint32_t, std::string>& pendingMoves) {
    if (event.name.ends_with(".integrity-tmp")) {
        return;
    }
    const std::string path = std::string(ring_.place) + "/" + event.name;
    const bool isMonitored = world_.fileToDescription.contains(path);
    if ((event.mask & IN_CLOSE_WRITE) != 0) {
        const auto [node, error] = tree_.opened(path);
        if (error != 0 || node->kind != Tree::Kind::file) {
            return;
        }
        if (isMonitored) {
            modifyFile(path);
        } else {
            loadFile(path);
        }
    } else if ((event.mask & IN_DELETE) != 0 && isMonitored) {
        removeFile(path);
    } else if ((event.mask & IN_MOVED_FROM) != 0) {
        if (isMonitored) {
            pendingMoves[event.cookie] = path;
        }
    } else if ((event.mask & IN_MOVED_TO) != 0) {
        loadFile(path);
        if (const auto pending = pendingMoves.find(event.cookie); pending != pendingMoves.end()) {
            removeFile(pending->second);
            pendingMoves.erase(pending);
        }
    }
}

void Rules::handleKeyringWatch() {
    for (const World::Notice& notice : std::exchange(world_.queue, {})) {
        if (!notice.isLink) {
            world_.records.erase(notice.key);
            continue;
        }
        if (const auto description = getKey(notice.key)) {
            removeDuplicates(*description);
            world_.records[notice.key] = *description;
        }
    }
}

KeyNumber Rules::loadFile(const std::string& path) {
    std::string description;
    if (const int error = refusal(path, description); error != 0) {
        world_.messages.insert(loadFailure(path, ring_, error));
        return failed;
    }
    const KeyNumber key = keyMade(description);
    keyLinked(key);
    const std::string recorded = getKey(key).value();
    if (!recorded.empty()) {
        world_.descriptionToFile[recorded].insert(path);
        world_.fileToDescription[path] = recorded;
    }
    return key;
}

void Rules::modifyFile(const std::string& path) {
    const std::string oldDescription = world_.fileToDescription.at(path);
    const KeyNumber key = loadFile(path);
    const std::string newDescription = key == failed ? "" : getKey(key).value();
    if (newDescription != oldDescription) {
        unmap(path, oldDescription);
    }
}

void Rules::removeFile(const std::string& path) {
    const auto mapped = world_.fileToDescription.find(path);
    if (mapped == world_.fileToDescription.end()) {
        throw ProcessEnds{"oldDesc"};
    }
    const std::string description = mapped->second;
    unmap(path, description);
}

void Rules::unmap(const std::string& path, const std::string& description) {
    const auto files = world_.descriptionToFile.find(description);
    if (files == world_.descriptionToFile.end()) {
        throw ProcessEnds{"keyColl && keyColl->descriptionToFileHas( description )"};
    }
    const auto mapped = world_.fileToDescription.find(path);
    if (mapped != world_.fileToDescription.end() && mapped->second == description) {
        world_.fileToDescription.erase(mapped);
    }
    files->second.erase(path);
    if (!files->second.empty()) {
        return;
    }
    world_.descriptionToFile.erase(files);
    std::vector<KeyNumber> found;
    for (const auto& [key, recorded] : world_.records) {
        if (recorded == description) {
            found.push_back(key);
        }
    }
    if (!found.empty()) {
        unlinkKey(found.size() == 1 ? found.front() : found[choose_(found.size())]);
    }
}

// The kernel looks the key up twice: once to describe it, once to unlink it.
void Rules::unlinkKey(KeyNumber key) {
    if (exists(key) && ring_.isWritable && exists(key)) {
        keyUnlinked(key);
    }
}

std::optional<std::string> Rules::getKey(KeyNumber key) {
    if (!exists(key)) {
        return std::nullopt;
    }
    return onRecord(world_.keys.at(key).description);
}

void Rules::removeDuplicates(const std::string& description) {
    std::erase_if(world_.records, [&](const auto& record) { return record.second == description; });
}

} // namespace Vestrel::Tests
