// SPDX-License-Identifier: Apache-2.0
// What can be seen of one keyring when nothing is left to do.
#pragma once

#include "keymodel/IntegrityKeyColl.h"
#include "tests/scenario/World.h"

#include <keyutils.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Vestrel::Tests {

/// The keys of a keyring by serial, each with the kernel's description.
using Members = std::map<key_serial_t, std::string>;

/// A key on record, all of it.
struct Record {
    key_serial_t serial;
    std::string description;
    std::string type;

    friend bool operator==(const Record&, const Record&) = default;
};

struct Observation {
    Members members;
    std::map<key_serial_t, Record> records;
    std::map<std::string, std::string> fileToDescription; // by PATH of steps
    std::map<std::string, std::set<std::string>> descriptionToFile;
    std::multiset<std::string> messages; // of this keyring

    /// The maps of the collection. A path outside of the place's directory stays as it is.
    void collectionIs(const IntegrityKeyColl& collection, const std::string& place);
};

/// Whether the world looks like that; what its serials are is learnt from it.
bool looksLike(World& world, const Observation& observation);

/// For whoever has to find out why it does not.
std::string textOf(const Observation& observation);
std::string textOf(const World& world);

} // namespace Vestrel::Tests
