// SPDX-License-Identifier: Apache-2.0
// Drives stage, tree and oracles side by side.
#include "tests/scenario/Play.h"

#include "tests/scenario/Generator.h"
#include "tests/scenario/LastWords.h"
#include "tests/scenario/Oracle.h"
#include "tests/scenario/Rings.h"
#include "tests/scenario/Watchers.h"

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <vector>

namespace Vestrel::Tests {

namespace {

class Player {
public:
    Player(Stage& stage, Kinds& kinds) : stage_(stage), kinds_(kinds) {
        for (const Ring& ring : rings) {
            oracles_.emplace_back(ring, stage.contents(), stage.members(ring.keyring),
                                  stage.held());
        }
    }

    bool allows(const Step& step) const {
        return Tree::isFileStep(step) ? tree_.allows(step) : isRunning_ || step.verb != "loop";
    }

    // Only what is allowed. The first difference, after a step at which everything is compared.
    std::optional<std::string> perform(const Step& step) {
        if (step.verb == "loop" || step.verb == "restart") {
            return boundary(step);
        }
        if (Tree::isFileStep(step)) {
            performOnFiles(step);
        } else {
            performOnKeys(step);
        }
        return std::nullopt;
    }

    // The assertion with which the last step has to end the process; it was not performed.
    const std::optional<std::string>& end() const { return end_; }

private:
    void performOnFiles(const Step& step) {
        const Tree before = tree_;
        tree_.apply(step);
        stage_.perform(step);
        if (isRunning_) {
            kinds_.fileStepIs(step, before, tree_, stage_.contents());
        }
    }

    void performOnKeys(const Step& step) {
        Oracle& oracle = *std::ranges::find(oracles_, step.words.at(0), placeOfOracle);
        const Members before = stage_.members(oracle.ring().keyring);
        oracle.apply(step, tree_);
        stage_.perform(step);
        if (isRunning_) {
            kinds_.keyStepIs(step, oracle.ring(), before, stage_.contents());
        }
    }

    static std::string placeOfOracle(const Oracle& oracle) { return oracle.ring().place; }

    std::optional<std::string> boundary(const Step& step) {
        if (isRunning_) {
            kinds_.kindIs(step.verb);
        }
        isRunning_ = true;
        try {
            for (Oracle& oracle : oracles_) {
                oracle.apply(step, tree_);
            }
        } catch (const ProcessEnds& end) {
            end_ = end.assertion;
            return std::nullopt;
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
    Kinds& kinds_;
    Tree tree_;
    std::vector<Oracle> oracles_;
    bool isRunning_ = false;
    std::optional<std::string> end_;
};

// What is wrong with the end of the process, or nothing.
std::optional<std::string> endDifference(const Steps& steps, const std::string& assertion,
                                         const StageMaker& makeStage, std::uint64_t seed) {
    const std::string words = lastWords([&] {
        const auto stage = makeStage(seed);
        for (const Step& step : steps) {
            stage->perform(step);
        }
    });
    if (words.ends_with(": assertion failed: " + assertion + "\n")) {
        return std::nullopt;
    }
    return "the process has to end with the assertion " + assertion + ", but ends with " + words;
}

// The steps that were performed, as text, with the difference.
std::optional<std::string> shown(const Steps& steps, const std::optional<std::string>& difference) {
    return difference ? std::optional(textOf(steps) + *difference) : std::nullopt;
}

// Ends the stage before the process has to end in another one.
std::optional<std::string> playOn(std::unique_ptr<Stage> stage, const Steps& steps,
                                  const StageMaker& makeStage, std::uint64_t seed, Kinds& kinds) {
    Player player(*stage, kinds);
    Steps done;
    for (const Step& step : steps) {
        if (!player.allows(step)) {
            kinds.kindIs(Kinds::leftOut);
            continue;
        }
        done.push_back(step);
        if (const auto difference = player.perform(step)) {
            return shown(done, difference);
        }
        if (player.end()) {
            stage.reset();
            kinds.kindIs(Kinds::end);
            return shown(done, endDifference(done, *player.end(), makeStage, seed));
        }
    }
    return std::nullopt;
}

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

std::optional<std::string> play(const Steps& steps, const StageMaker& makeStage, std::uint64_t seed,
                                Kinds& kinds) {
    return playOn(makeStage(seed), steps, makeStage, seed, kinds);
}

Played playRandom(const StageMaker& makeStage, std::uint64_t firstSeed, std::uint64_t count) {
    Played played;
    for (std::uint64_t seed = firstSeed; played.scenarios < count; ++seed) {
        auto stage = makeStage(seed);
        const Steps steps = randomScenario(stage->contents(), seed);
        auto difference = playOn(std::move(stage), steps, makeStage, seed, played.kinds);
        ++played.scenarios;
        played.steps += steps.size();
        if (!difference) {
            continue;
        }
        const Fails fails = [&](const Steps& fewer) {
            Kinds ignored;
            return play(fewer, makeStage, seed, ignored);
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
