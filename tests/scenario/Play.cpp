// SPDX-License-Identifier: Apache-2.0
// Drives stage, tree and oracles side by side.
#include "tests/scenario/Play.h"

#include "tests/scenario/Generator.h"
#include "tests/scenario/Oracle.h"
#include "tests/scenario/Rings.h"
#include "tests/scenario/Watchers.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace Vestrel::Tests {

namespace {

class Player {
public:
    explicit Player(Stage& stage) : stage_(stage) {
        for (const Ring& ring : rings) {
            oracles_.emplace_back(ring, stage.contents(), stage.members(ring.keyring),
                                  stage.held());
        }
    }

    // The first difference, after a step at which everything is compared.
    std::optional<std::string> perform(const Step& step) {
        if (step.verb == "loop" || step.verb == "restart") {
            return boundary(step);
        }
        if (Tree::isFileStep(step)) {
            if (tree_.allows(step)) {
                tree_.apply(step);
                stage_.perform(step);
            }
            return std::nullopt;
        }
        std::ranges::find(oracles_, step.words.at(0), placeOfOracle)->apply(step, tree_);
        stage_.perform(step);
        return std::nullopt;
    }

private:
    static std::string placeOfOracle(const Oracle& oracle) { return oracle.ring().place; }

    std::optional<std::string> boundary(const Step& step) {
        isRunning_ = isRunning_ || step.verb == "restart";
        if (!isRunning_) {
            return std::nullopt;
        }
        for (Oracle& oracle : oracles_) {
            oracle.apply(step, tree_);
        }
        tree_.eventsForget();
        stage_.perform(step);
        const std::vector<std::string> messages = stage_.messagesTaken();
        for (Oracle& oracle : oracles_) {
            if (auto difference = oracle.difference(observed(oracle.ring(), messages))) {
                return difference;
            }
        }
        if (auto difference = stage_.difference(tree_)) {
            return difference;
        }
        return watcherDifference(stage_.stateMachine(), [this](const std::string& keyring) {
            return stage_.serialOf(keyring);
        });
    }

    Observation observed(const Ring& ring, const std::vector<std::string>& messages) const {
        Observation observation;
        observation.members = stage_.members(ring.keyring);
        observation.collectionIs(*stage_.keyrings().keyring(ring.keyring), ring.place);
        const std::string mark = std::string(" in keyring (") + ring.keyring + "). ";
        for (const std::string& message : messages) {
            if (message.find(mark) != std::string::npos) {
                observation.messages.insert(message);
            }
        }
        return observation;
    }

    Stage& stage_;
    Tree tree_;
    std::vector<Oracle> oracles_;
    bool isRunning_ = false;
};

using Fails = std::function<std::optional<std::string>(const Steps&)>;

// Leaves steps out, many at once and then single ones, as long as a difference stays.
std::string shortened(Steps steps, std::string difference, const Fails& fails) {
    for (std::size_t size = steps.size() / 2; size != 0; size /= 2) {
        for (std::size_t at = 0; at < steps.size();) {
            Steps fewer = steps;
            const auto begin = fewer.begin() + static_cast<std::ptrdiff_t>(at);
            const std::size_t end = std::min(at + size, fewer.size());
            fewer.erase(begin, fewer.begin() + static_cast<std::ptrdiff_t>(end));
            if (auto still = fails(fewer)) {
                steps = std::move(fewer);
                difference = *std::move(still);
            } else {
                at += size;
            }
        }
    }
    return difference;
}

std::uint64_t fromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr || *text == '\0' ? otherwise : std::strtoull(text, nullptr, 10);
}

} // namespace

std::optional<std::string> play(const Steps& steps, Stage& stage) {
    Player player(stage);
    Steps done;
    for (const Step& step : steps) {
        done.push_back(step);
        if (const auto difference = player.perform(step)) {
            return textOf(done) + *difference;
        }
    }
    return std::nullopt;
}

Played playRandom(const StageMaker& makeStage, std::uint64_t firstSeed, std::uint64_t count) {
    Played played;
    for (std::uint64_t seed = firstSeed; played.scenarios < count; ++seed) {
        auto stage = makeStage(seed);
        const Steps steps = randomScenario(stage->contents(), seed);
        auto difference = play(steps, *stage);
        stage.reset();
        ++played.scenarios;
        played.steps += steps.size();
        if (!difference) {
            continue;
        }
        const Fails fails = [&](const Steps& fewer) -> std::optional<std::string> {
            try {
                return play(fewer, *makeStage(seed));
            } catch (const ProcessEnds&) {
                return std::nullopt;
            }
        };
        played.difference = "seed " + std::to_string(seed) + ":\n" +
                            shortened(steps, *std::move(difference), fails);
        return played;
    }
    return played;
}

std::uint64_t scenariosWanted(std::uint64_t usual) {
    return fromEnvironment("VESTREL_SCENARIOS", usual);
}

std::uint64_t seedWanted() {
    return fromEnvironment("VESTREL_SEED", 1);
}

} // namespace Vestrel::Tests
