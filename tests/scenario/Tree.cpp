// SPDX-License-Identifier: Apache-2.0
// The kernel's rules of files and of inotify, as far as the scenarios need them.
#include "tests/scenario/Tree.h"

#include <sys/inotify.h>

#include <cerrno>

namespace Vestrel::Tests {

namespace {

constexpr int mostLinks = 8;

} // namespace

bool Tree::isFileStep(const Step& step) {
    static const std::map<std::string, std::size_t> verbs{
        {"write", 2},  {"open", 3},  {"close", 1},   {"move", 2},
        {"delete", 1}, {"mkdir", 1}, {"symlink", 2}, {"fifo", 1}};
    const auto verb = verbs.find(step.verb);
    return verb != verbs.end() && verb->second == step.words.size();
}

const Tree::Node* Tree::at(const std::string& path) const {
    const auto name = names_.find(path);
    return name == names_.end() ? nullptr : &nodes_[name->second];
}

std::optional<std::string> Tree::followed(std::string path) const {
    for (int links = 0; links <= mostLinks; ++links) {
        const Node* const node = at(path);
        if (node == nullptr || node->kind != Kind::link) {
            return path;
        }
        path = node->text;
    }
    return std::nullopt;
}

bool Tree::allowsWriting(const std::string& path) const {
    const auto target = followed(path);
    if (!target) {
        return false;
    }
    const Node* const node = at(*target);
    return node == nullptr || node->kind == Kind::file;
}

bool Tree::allowsMoving(const std::string& from, const std::string& to) const {
    const Node* const moved = at(from);
    const Node* const replaced = at(to);
    return from != to && moved != nullptr &&
           (replaced == nullptr ||
            (moved->kind != Kind::directory && replaced->kind != Kind::directory));
}

bool Tree::allows(const Step& step) const {
    if (!isFileStep(step)) {
        return false;
    }
    const std::string& first = step.words[0];
    if (step.verb == "write") {
        return allowsWriting(first);
    }
    if (step.verb == "open") {
        return !hasHandle(first) && allowsWriting(step.words[1]);
    }
    if (step.verb == "close") {
        return hasHandle(first);
    }
    if (step.verb == "move") {
        return allowsMoving(first, step.words[1]);
    }
    return (step.verb == "delete") == (at(first) != nullptr);
}

void Tree::apply(const Step& step) {
    const std::string& first = step.words[0];
    if (step.verb == "write") {
        report(IN_CLOSE_WRITE, nodes_[written(first, step.words[1])].path);
    } else if (step.verb == "open") {
        handles_[first] = written(step.words[1], step.words[2]);
    } else if (step.verb == "close") {
        // Under the name that the file has now, or had when it was removed.
        report(IN_CLOSE_WRITE, nodes_[handles_.at(first)].path);
        handles_.erase(first);
    } else if (step.verb == "move") {
        move(first, step.words[1]);
    } else if (step.verb == "delete") {
        const bool isDirectory = at(first)->kind == Kind::directory;
        names_.erase(first);
        report(IN_DELETE | (isDirectory ? IN_ISDIR : 0U), first);
    } else if (step.verb == "symlink") {
        make(Kind::link, first, step.words[1]);
    } else {
        make(step.verb == "mkdir" ? Kind::directory : Kind::fifo, first, "");
    }
}

void Tree::make(Kind kind, const std::string& path, const std::string& text) {
    names_[path] = nodes_.size();
    nodes_.push_back({kind, text, path});
}

std::size_t Tree::written(const std::string& path, const std::string& content) {
    const std::string target = *followed(path);
    if (at(target) == nullptr) {
        make(Kind::file, target, "");
    }
    const std::size_t node = names_.at(target);
    nodes_[node].text = content;
    return node;
}

// Nothing is reported of a file that is moved over.
void Tree::move(const std::string& from, const std::string& to) {
    const std::size_t node = names_.at(from);
    const std::uint32_t directory = nodes_[node].kind == Kind::directory ? IN_ISDIR : 0U;
    names_.erase(from);
    names_[to] = node;
    nodes_[node].path = to;
    ++cookie_;
    report(IN_MOVED_FROM | directory, from, cookie_);
    report(IN_MOVED_TO | directory, to, cookie_);
}

// The kernel drops an event that says the same of the same name as the one before it in the queue.
void Tree::report(std::uint32_t mask, const std::string& path, std::uint32_t cookie) {
    Events& queue = events_[placeOf(path)];
    if (queue.empty() || queue.back().mask != mask || queue.back().name != nameOf(path)) {
        queue.push_back({mask, nameOf(path), cookie});
    }
}

const Events& Tree::events(const std::string& place) const {
    static const Events none;
    const auto queue = events_.find(place);
    return queue == events_.end() ? none : queue->second;
}

Tree::Found Tree::opened(const std::string& path) const {
    const auto target = followed(path);
    if (!target) {
        return {nullptr, ELOOP};
    }
    const Node* const node = at(*target);
    if (node == nullptr) {
        return {nullptr, ENOENT};
    }
    return {node, 0};
}

std::map<std::string, Tree::Node> Tree::entries(const std::string& place) const {
    std::map<std::string, Node> entries;
    for (const auto& [path, node] : names_) {
        if (placeOf(path) == place) {
            entries.emplace(path, nodes_[node]);
        }
    }
    return entries;
}

} // namespace Vestrel::Tests
