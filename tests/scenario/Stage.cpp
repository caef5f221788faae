// SPDX-License-Identifier: Apache-2.0
// Steps on the real file system.
#include "tests/scenario/Stage.h"

#include "tests/scenario/Rings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace Vestrel::Tests {

namespace fs = std::filesystem;

namespace {

constexpr mode_t ownerReadsAndWrites = 0600;

int checked(int result, const std::string& what) {
    if (result == -1) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

} // namespace

// A process that ended in the middle of a scenario has left its files.
Stage::Stage() {
    fs::remove_all(directoryOf(unwatchedPlace));
    fs::create_directories(directoryOf(unwatchedPlace));
    for (const Ring& ring : rings) {
        fs::remove_all(directoryOf(ring.place));
        fs::create_directories(directoryOf(ring.place));
    }
}

Stage::~Stage() {
    fs::remove_all(directoryOf(unwatchedPlace));
}

void Stage::perform(const Step& step) {
    if (step.verb == "loop") {
        loop();
    } else if (step.verb == "restart") {
        restart();
    } else if (!performOnFiles(step)) {
        performOnKeys(step);
    }
}

bool Stage::performOnFiles(const Step& step) {
    if (!Tree::isFileStep(step)) {
        return false;
    }
    const std::string& first = step.words[0];
    const std::string path = realPath(first);
    if (step.verb == "write") {
        written(path, step.words[1]);
    } else if (step.verb == "open") {
        handles_.emplace(first, written(realPath(step.words[1]), step.words[2]));
    } else if (step.verb == "close") {
        handles_.erase(first);
    } else if (step.verb == "move") {
        fs::rename(path, realPath(step.words[1]));
    } else if (step.verb == "delete") {
        checked(::remove(path.c_str()), path);
    } else if (step.verb == "symlink") {
        fs::create_symlink(realPath(step.words[1]), path);
    } else if (step.verb == "mkdir") {
        checked(::mkdir(path.c_str(), S_IRWXU), path);
    } else {
        checked(::mkfifo(path.c_str(), ownerReadsAndWrites), path);
    }
    return true;
}

Zell::OwnedFd Stage::written(const std::string& path, const std::string& content) const {
    Zell::OwnedFd file(checked(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, ownerReadsAndWrites), path));
    const Bytes& bytes = contents().at(content).bytes;
    if (::write(file.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("cannot write " + path);
    }
    return file;
}

void Stage::performOnKeys(const Step& step) {
    const Ring& ring = *std::ranges::find(rings, step.words.at(0), &Ring::place);
    const int error = triedOnKeys(step, ring.keyring);
    if (error != (ring.isWritable ? 0 : EACCES)) {
        throw std::system_error(error, std::generic_category(), textOf(step));
    }
}

int Stage::triedOnKeys(const Step& step, const std::string& keyring) {
    if (step.verb == "clear") {
        return clear(keyring);
    }
    const Content& content = contents().at(step.words.at(1));
    if (step.verb == "add") {
        return add(keyring, content);
    }
    if (step.verb == "link") {
        return link(keyring, held().at(content.name));
    }
    if (step.verb == "unlink") {
        return unlinkDescribed(keyring, content.description);
    }
    throw std::invalid_argument("no such step: " + textOf(step));
}

// At most one key of a keyring has the description.
int Stage::unlinkDescribed(const std::string& keyring, const std::string& description) {
    const Members keys = members(keyring);
    const auto key = std::ranges::find(keys, description, &Members::value_type::second);
    return key == keys.end() ? 0 : unlink(keyring, key->first);
}

std::string Stage::expected(const Tree::Node& node) const {
    switch (node.kind) {
    case Tree::Kind::file: {
        const Bytes& bytes = contents().at(node.text).bytes;
        return "file " + std::string(bytes.begin(), bytes.end());
    }
    case Tree::Kind::link:
        return "link to " + realPath(node.text);
    case Tree::Kind::directory:
        return "directory";
    default:
        return "fifo";
    }
}

std::string Stage::seen(const std::string& path) const {
    const fs::file_status status = fs::symlink_status(path);
    if (fs::is_symlink(status)) {
        return "link to " + fs::read_symlink(path).string();
    }
    if (fs::is_regular_file(status)) {
        std::ifstream file(path, std::ios::binary);
        return "file " + std::string(std::istreambuf_iterator<char>(file), {});
    }
    return fs::is_directory(status) ? "directory" : "fifo";
}

std::optional<std::string> Stage::difference(const Tree& tree) const {
    for (const Ring& ring : rings) {
        std::map<std::string, std::string> wanted;
        for (const auto& [path, node] : tree.entries(ring.place)) {
            wanted[realPath(path)] = expected(node);
        }
        std::map<std::string, std::string> found;
        for (const auto& entry : fs::directory_iterator(directoryOf(ring.place))) {
            found[entry.path()] = seen(entry.path());
        }
        if (wanted != found) {
            return "the directory of " + std::string(ring.place) + " is not as it should be";
        }
    }
    return std::nullopt;
}

} // namespace Vestrel::Tests
