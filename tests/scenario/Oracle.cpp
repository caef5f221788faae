// SPDX-License-Identifier: Apache-2.0
// Follows every way that the rules leave open, until what is seen excludes it.
#include "tests/scenario/Oracle.h"

#include <stdexcept>
#include <utility>

namespace Vestrel::Tests {

namespace {

constexpr std::size_t mostWorlds = 100000;

} // namespace

Oracle::Oracle(const Ring& ring, const Contents& contents, const Members& members,
               const std::map<std::string, key_serial_t>& held)
    : ring_(ring), contents_(contents) {
    World world;
    for (const auto& [name, serial] : held) {
        world.keys[++world.lastKey] = {contents.at(name).description, true, false};
        world.serials[world.lastKey] = serial;
        held_[name] = world.lastKey;
    }
    for (const auto& [serial, description] : members) {
        world.keys[++world.lastKey] = {description, false, false};
        world.serials[world.lastKey] = serial;
        world.members[description] = world.lastKey;
    }
    worlds_.insert(world);
}

void Oracle::apply(const Step& step, const Tree& tree) {
    if (step.verb == "loop") {
        change(tree, [](Rules& rules) { rules.loop(); });
    } else if (step.verb == "restart") {
        change(tree, [](Rules& rules) { rules.startUp(); });
    } else if (!ring_.isWritable) {
        return; // the kernel refuses
    } else if (step.verb == "clear") {
        change(tree, [](Rules& rules) { rules.clearedByHand(); });
    } else if (step.verb == "link") {
        change(tree, [&](Rules& rules) { rules.linkedByHand(held_.at(step.words[1])); });
    } else if (step.verb == "add") {
        change(tree, [&](Rules& rules) { rules.addedByHand(contents_.at(step.words[1])); });
    } else if (step.verb == "unlink") {
        change(tree, [&](Rules& rules) {
            rules.unlinkedByHand(contents_.at(step.words[1]).description);
        });
    } else {
        throw std::invalid_argument("no such step: " + textOf(step));
    }
}

void Oracle::change(const Tree& tree, const std::function<void(Rules&)>& step) {
    std::set<World> changed;
    std::optional<ProcessEnds> end;
    for (const World& before : worlds_) {
        Choices choose;
        do {
            World world = before;
            Rules rules(world, ring_, contents_, tree, choose);
            try {
                step(rules);
                changed.insert(std::move(world));
            } catch (const ProcessEnds& found) {
                end = found;
            }
            if (changed.size() > mostWorlds) {
                throw std::length_error("too much is left open");
            }
        } while (choose.next());
    }
    if (end && changed.empty()) {
        throw *std::move(end);
    }
    if (end) {
        throw std::logic_error("whether the process ends is left open");
    }
    worlds_ = std::move(changed);
}

std::optional<std::string> Oracle::difference(const Observation& observation) {
    std::set<World> left;
    for (World world : worlds_) {
        if (looksLike(world, observation)) {
            left.insert(std::move(world));
        }
    }
    if (left.empty()) {
        return std::string(ring_.keyring) + " is\n" + textOf(observation) + "but should be (" +
               std::to_string(worlds_.size()) + " ways are open, this is one)\n" +
               textOf(*worlds_.begin());
    }
    worlds_ = std::move(left);
    return std::nullopt;
}

} // namespace Vestrel::Tests
