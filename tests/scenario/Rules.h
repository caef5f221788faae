// SPDX-License-Identifier: Apache-2.0
// What the state machine is required to do with one keyring, written down a second time and apart
// from it, together with what the kernel does.
#pragma once

#include "tests/scenario/Contents.h"
#include "tests/scenario/Rings.h"
#include "tests/scenario/Tree.h"
#include "tests/scenario/World.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

/// Thrown where the process has to end with a fatal assertion, whose text it is.
struct ProcessEnds {
    std::string assertion;
};

/// Changes one world. Four things are not determined, and chosen: which of two ready descriptors is
/// handled first, whether a key that nobody links any more can still be described, which of several
/// records of one description is found first, and in which order a directory is read.
class Rules {
public:
    Rules(World& world, const Ring& ring, const Contents& contents, const Tree& tree,
          Choices& choose)
        : world_(world), ring_(ring), contents_(contents), tree_(tree), choose_(choose) {}

    // What others do to the keyring.
    void addedByHand(const Content& content);
    void linkedByHand(KeyNumber key);
    void unlinkedByHand(const std::string& description);
    void clearedByHand();

    // What the state machine does.
    void startUp();
    void loop();

private:
    // The kernel.
    KeyNumber keyMade(const std::string& description);
    void keyLinked(KeyNumber key);
    bool keyUnlinked(KeyNumber key);
    bool exists(KeyNumber key);
    int refusal(const std::string& path, std::string& description) const;

    // The state machine.
    using Entry = std::pair<std::string, std::string>; // path and description
    std::vector<Entry> certificatesFound() const;
    void handleInotify();
    void event(const Event& event, std::map<std::uint32_t, std::string>& pendingMoves);
    void handleKeyringWatch();
    KeyNumber loadFile(const std::string& path);
    void modifyFile(const std::string& path);
    void removeFile(const std::string& path);
    void unmap(const std::string& path, const std::string& description);
    void unlinkKey(KeyNumber key);
    std::optional<std::string> getKey(KeyNumber key);
    void removeDuplicates(const std::string& description);

    World& world_;
    const Ring& ring_;
    const Contents& contents_;
    const Tree& tree_;
    Choices& choose_;
};

} // namespace Vestrel::Tests
