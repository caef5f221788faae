// SPDX-License-Identifier: Apache-2.0
// Few names and few contents, so that they meet.
#include "tests/scenario/Generator.h"

#include "tests/scenario/Rules.h"

#include <array>
#include <random>
#include <stdexcept>
#include <utility>

namespace Vestrel::Tests {

namespace {

constexpr std::array<const char*, 6> fileNames{
    "a", "b", "c", "d", "a.integrity-tmp", ".integrity-tmp"};
constexpr std::array<const char*, 3> handles{"1", "2", "3"};

void startUp(World& world, const Ring& ring, const Contents& contents, const Tree& tree) {
    Choices first;
    Rules(world, ring, contents, tree, first).startUp();
}

void loop(World& world, const Ring& ring, const Contents& contents, const Tree& tree) {
    Choices first;
    Rules(world, ring, contents, tree, first).loop();
}

// Makes one scenario. Follows the directories and the maps of their files, which are determined
// whatever the kernel does, so that no scenario does what the system would refuse, and none ends
// the process but the one in fifty that has to.
class Generator {
public:
    Generator(const Contents& contents, std::uint64_t seed)
        : contents_(contents), random_(seed), isFatal_(seed % 50 == 25) {}

    Steps scenario();

private:
    std::size_t below(std::size_t limit) { return random_() % limit; }

    bool oneIn(std::size_t times) { return below(times) == 0; }

    template <class Container>
    const auto& oneOf(const Container& values) {
        return values[below(values.size())];
    }

    std::string place();
    std::string path();
    std::string soundContent();
    std::string content(const std::string& path);
    Step fileStep();
    Step keyStep();
    Step refusedKeyStep();
    void arrivalAdd();
    void burst();
    void boundaryAdd(const std::string& verb);
    bool tried(const Step& step);
    bool endsTheProcess(const Tree& tree) const;
    std::string monitoredFile();
    Step fatalStep(const std::string& file);
    Steps fatalTry(const std::string& file);
    void fatalBurst();

    const Contents& contents_;
    std::mt19937_64 random_;
    bool isFatal_;
    std::string favourite_; // the place of most steps
    Steps steps_;
    Tree tree_;
    std::array<World, rings.size()> worlds_; // for the files of each ring only
};

std::string Generator::place() {
    switch (below(12)) {
    case 0:
        return "out";
    case 1:
        return oneOf(rings).place;
    default:
        return favourite_;
    }
}

std::string Generator::path() {
    return place() + "/" + oneOf(fileNames);
}

std::string Generator::soundContent() {
    return oneOf(Contents::heldNames());
}

std::string Generator::content(const std::string& path) {
    constexpr std::size_t mostlyTaken = 8;
    const bool isLittle = !oneIn(3);
    std::string name = isLittle ? Contents::names()[below(mostlyTaken)] : oneOf(Contents::names());
    // Another keyring would take the root's own certificate, and it is not for scenarios to say so.
    return name == "root" && placeOf(path) != "builtin" ? "alpha" : name;
}

Step Generator::fileStep() {
    const std::string first = path();
    switch (below(20)) {
    case 0:
    case 1:
    case 2:
    case 3:
        return {"delete", {first}};
    case 4:
    case 5:
        return {"open", {oneOf(handles), first, content(first)}};
    case 6:
    case 7:
        return {"close", {oneOf(handles)}};
    case 8:
        return {"symlink", {first, path()}};
    case 9:
        return {oneIn(2) ? "mkdir" : "fifo", {first}};
    case 10:
    case 11:
    case 12:
    case 13:
        return {"move", {first, path()}};
    default:
        return {"write", {first, content(first)}};
    }
}

Step Generator::keyStep() {
    const bool isWritable = favourite_ == "ima" || favourite_ == "secondary";
    if (oneIn(isWritable ? 24 : 3)) {
        return refusedKeyStep();
    }
    const std::string ring = !isWritable || oneIn(8) ? rings[below(2)].place : favourite_;
    switch (below(9)) {
    case 0:
        return ring == "ima" ? Step{"clear", {ring}} : Step{"add", {ring, soundContent()}};
    case 1:
    case 2:
        return {"add", {ring, soundContent()}};
    case 3:
    case 4:
        return {"link", {ring, soundContent()}};
    default:
        return {"unlink", {ring, soundContent()}};
    }
}

// What the kernel keeps everybody from.
Step Generator::refusedKeyStep() {
    const std::string ring = oneOf(std::array{"builtin", "machine"});
    switch (below(4)) {
    case 0:
        return {"clear", {ring}};
    case 1:
        return {"add", {ring, soundContent()}};
    case 2:
        return {"link", {ring, soundContent()}};
    default:
        return {"unlink", {"builtin", "root"}};
    }
}

// A file arrives as an installer brings it, or from elsewhere.
void Generator::arrivalAdd() {
    const std::string target = path();
    const std::string source = oneIn(2) ? target + ".integrity-tmp" : "out/" + nameOf(target);
    if (tried({"write", {source, content(target)}})) {
        tried({"move", {source, target}});
    }
}

bool Generator::endsTheProcess(const Tree& tree) const {
    auto worlds = worlds_;
    try {
        for (std::size_t i = 0; i < rings.size(); ++i) {
            loop(worlds[i], rings[i], contents_, tree);
        }
    } catch (const ProcessEnds&) {
        return true;
    }
    return false;
}

bool Generator::tried(const Step& step) {
    if (Tree::isFileStep(step)) {
        Tree tree = tree_;
        if (!tree.allows(step)) {
            return false;
        }
        tree.apply(step);
        if (endsTheProcess(tree)) {
            return false;
        }
        tree_ = std::move(tree);
    }
    steps_.push_back(step);
    return true;
}

void Generator::burst() {
    for (std::size_t count = oneIn(4) ? 1 : 1 + below(6); count != 0; --count) {
        switch (below(8)) {
        case 0:
        case 1:
            tried(keyStep());
            break;
        case 2:
            arrivalAdd();
            break;
        default:
            tried(fileStep());
        }
    }
}

void Generator::boundaryAdd(const std::string& verb) {
    steps_.push_back({verb, {}});
    for (std::size_t i = 0; i < rings.size(); ++i) {
        if (verb == "restart") {
            startUp(worlds_[i], rings[i], contents_, tree_);
        } else {
            loop(worlds_[i], rings[i], contents_, tree_);
        }
    }
    tree_.eventsForget();
}

// One of those on record of which events are followed, and that stands there; empty when there is
// none.
std::string Generator::monitoredFile() {
    std::vector<std::string> files;
    for (const World& world : worlds_) {
        for (const auto& [path, description] : world.fileToDescription) {
            if (!path.ends_with(".integrity-tmp") && tree_.opened(path).error == 0) {
                files.push_back(path);
            }
        }
    }
    return files.empty() ? "" : oneOf(files);
}

// The file goes, comes back and is changed under names that nothing else stands at.
Step Generator::fatalStep(const std::string& file) {
    const std::string elsewhere = "out/fatal-" + std::to_string(below(2));
    const std::string beside = placeOf(file) + "/fatal";
    switch (below(8)) {
    case 0:
    case 1:
        return {"move", {file, elsewhere}};
    case 2:
        return {"move", {elsewhere, file}};
    case 3:
        return {"move", {file, beside}};
    case 4:
        return {"move", {beside, file}};
    case 5:
        return {"delete", {file}};
    default:
        return {"write", {file, content(file)}};
    }
}

// What ends the process at the next loop, or nothing.
Steps Generator::fatalTry(const std::string& file) {
    constexpr std::size_t most = 8;
    Tree tree = tree_;
    Steps steps;
    while (steps.size() < most) {
        const Step step = fatalStep(file);
        if (!tree.allows(step)) {
            continue;
        }
        tree.apply(step);
        steps.push_back(step);
        if (endsTheProcess(tree)) {
            return steps;
        }
    }
    return {};
}

void Generator::fatalBurst() {
    if (monitoredFile().empty()) {
        tried({"write", {"ima/fatal", "alpha"}});
        boundaryAdd("loop");
    }
    const std::string file = monitoredFile();
    constexpr int mostTries = 10000;
    Steps steps;
    for (int tries = 0; steps.empty(); ++tries) {
        if (tries == mostTries) {
            throw std::logic_error("no end is found with " + file);
        }
        steps = fatalTry(file);
    }
    steps_.insert(steps_.end(), steps.begin(), steps.end());
    steps_.push_back({"loop", {}});
}

Steps Generator::scenario() {
    favourite_ = oneOf(
        std::array{"ima", "ima", "ima", "ima", "secondary", "secondary", "builtin", "machine"});
    if (!oneIn(3)) {
        burst();
    }
    boundaryAdd("restart");
    for (std::size_t count = 4 + below(9); count != 0; --count) {
        burst();
        boundaryAdd(oneIn(12) ? "restart" : "loop");
    }
    if (isFatal_) {
        fatalBurst();
    }
    return std::move(steps_);
}

} // namespace

Steps randomScenario(const Contents& contents, std::uint64_t seed) {
    return Generator(contents, seed).scenario();
}

} // namespace Vestrel::Tests
