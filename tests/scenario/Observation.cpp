// SPDX-License-Identifier: Apache-2.0
// Compares a world with what is seen.
#include "tests/scenario/Observation.h"

#include "tests/scenario/Rings.h"

#include <algorithm>
#include <optional>
#include <sstream>

namespace Vestrel::Tests {

namespace {

std::string stepPath(const std::string& path, const std::string& place) {
    const std::string directory = directoryOf(place) + "/";
    return path.starts_with(directory) ? place + "/" + path.substr(directory.size()) : path;
}

bool isTaken(const World& world, key_serial_t serial) {
    return std::ranges::any_of(world.serials,
                               [&](const auto& known) { return known.second == serial; });
}

// Whether the key can have the serial; from then on it has it.
bool named(World& world, KeyNumber key, key_serial_t serial) {
    const auto known = world.serials.find(key);
    if (known != world.serials.end()) {
        return known->second == serial;
    }
    if (isTaken(world, serial)) {
        return false;
    }
    world.serials[key] = serial;
    return true;
}

bool sameMembers(World& world, const Members& members) {
    return world.members.size() == members.size() &&
           std::ranges::all_of(members, [&](const auto& member) {
               const auto found = world.members.find(member.second);
               return found != world.members.end() && named(world, found->second, member.first);
           });
}

// What the keyrings take is of this type.
Record recordOf(key_serial_t serial, const std::string& description) {
    return {serial, description, "asymmetric"};
}

std::ostream& operator<<(std::ostream& out, const Record& record) {
    return out << record.serial << " " << record.type << " " << record.description;
}

// A record of a key that was never seen as a member.
bool namedByDescription(World& world, const Observation& observation, KeyNumber key,
                        const std::string& description) {
    return std::ranges::any_of(observation.records, [&](const auto& record) {
        return record.second == recordOf(record.first, description) &&
               !isTaken(world, record.first) && named(world, key, record.first);
    });
}

bool sameRecords(World& world, const Observation& observation) {
    if (world.records.size() != observation.records.size()) {
        return false;
    }
    for (const auto& [key, description] : world.records) {
        const auto serial = world.serials.find(key);
        if (serial == world.serials.end()) {
            if (!namedByDescription(world, observation, key, description)) {
                return false;
            }
            continue;
        }
        const auto record = observation.records.find(serial->second);
        if (record == observation.records.end() ||
            record->second != recordOf(record->first, description)) {
            return false;
        }
    }
    return true;
}

// Keys that nothing can lead to any more, so that equal worlds are found equal.
void forgetLostKeys(World& world) {
    const auto isLost = [&](KeyNumber number) {
        const World::Key& key = world.keys.at(number);
        const auto member = world.members.find(key.description);
        return !key.isHeld && !world.records.contains(number) &&
               (member == world.members.end() || member->second != number) &&
               std::ranges::none_of(
                   world.queue, [&](const World::Notice& notice) { return notice.key == number; });
    };
    std::erase_if(world.serials, [&](const auto& serial) { return isLost(serial.first); });
    std::erase_if(world.keys, [&](const auto& key) { return isLost(key.first); });
}

template <class Map>
void print(std::ostream& out, const char* title, const Map& map) {
    out << "  " << title << ":";
    for (const auto& [key, value] : map) {
        out << " [" << key << " " << value << "]";
    }
    out << "\n";
}

template <class Value>
void printRest(std::ostream& out, const Value& value) {
    print(out, "files", value.fileToDescription);
    out << "  file sets:";
    for (const auto& [description, files] : value.descriptionToFile) {
        out << " [" << description << ":";
        for (const std::string& file : files) {
            out << " " << file;
        }
        out << "]";
    }
    out << "\n";
    for (const std::string& message : value.messages) {
        out << "  " << message << "\n";
    }
}

} // namespace

void Observation::collectionIs(const IntegrityKeyColl& collection, const std::string& place) {
    for (auto key = collection.key().iterator(); key; ++key) {
        records[key.key()] = {key->serial, std::string(key->description.view()),
                              std::string(key->type.view())};
    }
    for (auto file = collection.fileToDescription().iterator(); file; ++file) {
        fileToDescription[stepPath(std::string(file.key().view()), place)] = (*file).view();
    }
    for (auto files = collection.descriptionToFile().iterator(); files; ++files) {
        auto& paths = descriptionToFile[std::string(files.key().view())];
        for (const Orvo::String& path : (*files)->filePath()) {
            paths.insert(stepPath(std::string(path.view()), place));
        }
    }
}

bool looksLike(World& world, const Observation& observation) {
    if (world.fileToDescription != observation.fileToDescription ||
        world.descriptionToFile != observation.descriptionToFile ||
        world.messages != observation.messages || !sameMembers(world, observation.members) ||
        !sameRecords(world, observation)) {
        return false;
    }
    world.messages.clear();
    forgetLostKeys(world);
    return true;
}

std::string textOf(const Observation& observation) {
    std::ostringstream out;
    print(out, "keyring", observation.members);
    print(out, "records", observation.records);
    printRest(out, observation);
    return out.str();
}

std::string textOf(const World& world) {
    const auto name = [&](KeyNumber key) {
        const auto serial = world.serials.find(key);
        return serial == world.serials.end() ? "new-" + std::to_string(key)
                                             : std::to_string(serial->second);
    };
    std::map<std::string, std::string> members;
    for (const auto& [description, key] : world.members) {
        members[name(key)] = description;
    }
    std::map<std::string, std::string> records;
    for (const auto& [key, description] : world.records) {
        records[name(key)] = description;
    }
    std::ostringstream out;
    print(out, "keyring", members);
    print(out, "records", records);
    printRest(out, world);
    return out.str();
}

} // namespace Vestrel::Tests
