// SPDX-License-Identifier: Apache-2.0
// Tells kinds apart by what a step found and what it left.
#include "tests/scenario/Kinds.h"

#include "tests/scenario/Contents.h"

#include <algorithm>

namespace Vestrel::Tests {

namespace {

bool isTemporary(const std::string& path) {
    return path.ends_with(".integrity-tmp");
}

bool isWatched(const std::string& path) {
    return placeOf(path) != unwatchedPlace;
}

// A certificate's name in a certificate directory.
bool isCertificate(const std::string& path) {
    return isWatched(path) && !isTemporary(path);
}

// A certificate's name where the kernel takes what it trusts.
bool isTakenFrom(const std::string& path) {
    const auto* const ring = std::ranges::find(rings, placeOf(path), &Ring::place);
    return ring != rings.end() && ring->isWritable && !isTemporary(path);
}

// What the file holds; null when there is no file.
const Content* contentOf(const Tree& tree, const std::string& path, const Contents& contents) {
    const auto [node, error] = tree.opened(path);
    return error == 0 && node->kind == Tree::Kind::file ? &contents.at(node->text) : nullptr;
}

bool hasTwin(const Tree& tree, const std::string& path, const std::string& description,
             const Contents& contents) {
    const auto files = tree.entries(placeOf(path));
    return std::ranges::any_of(files, [&](const auto& file) {
        const Content* const other = contentOf(tree, file.first, contents);
        return file.first != path && !isTemporary(file.first) && other != nullptr &&
               other->refusal == 0 && other->description == description;
    });
}

} // namespace

void Kinds::fileStepIs(const Step& step, const Tree& before, const Tree& after,
                       const Contents& contents) {
    const std::string& first = step.words[0];
    if (step.verb == "move") {
        moveIs(first, step.words[1], before);
        contentIs(step.words[1], before, after, contents);
    } else if (step.verb == "write") {
        writeIs(first, before);
        contentIs(first, before, after, contents);
    } else if (step.verb == "close") {
        kindIs("close of a file written before");
    } else if (step.verb == "delete") {
        if (isCertificate(first) && contentOf(before, first, contents) != nullptr) {
            kindIs("delete");
        }
    } else if (step.verb != "open" && isWatched(first)) {
        kindIs(step.verb);
    }
}

void Kinds::writeIs(const std::string& path, const Tree& before) {
    if (isCertificate(path)) {
        kindIs(before.opened(path).error == 0 ? "rewrite" : "create");
    } else if (isWatched(path)) {
        kindIs("temporary name");
    }
}

void Kinds::moveIs(const std::string& from, const std::string& to, const Tree& before) {
    const bool isWithin = placeOf(from) == placeOf(to);
    if (isCertificate(to) && before.opened(to).error == 0) {
        kindIs("move over");
    }
    if (isWithin && isCertificate(to)) {
        kindIs(isTemporary(from) ? "rename of a temporary name" : "rename");
    } else if (!isWithin && isCertificate(to)) {
        kindIs("move in");
    }
    if (!isWithin && isCertificate(from)) {
        kindIs("move out");
    }
}

void Kinds::contentIs(const std::string& path, const Tree& before, const Tree& after,
                      const Contents& contents) {
    const Content* const old = contentOf(before, path, contents);
    const Content* const now = contentOf(after, path, contents);
    if (!isTakenFrom(path) || now == nullptr) {
        return;
    }
    if (old != nullptr && (old->refusal == 0) != (now->refusal == 0)) {
        kindIs(now->refusal == 0 ? "good over damaged" : "damaged over good");
    }
    if (now->refusal == 0 && hasTwin(after, path, now->description, contents)) {
        kindIs("duplicate");
    }
}

void Kinds::keyStepIs(const Step& step, const Ring& ring, const Members& before,
                      const Contents& contents) {
    if (!ring.isWritable) {
        kindIs("refused to other hands");
        return;
    }
    const auto isThere = [&](const std::string& description) {
        return std::ranges::count(before, description, &Members::value_type::second) != 0;
    };
    if (step.verb == "unlink" && !isThere(contents.at(step.words[1]).description)) {
        return;
    }
    if (step.verb != "clear" || !before.empty()) {
        kindIs("key " + step.verb);
    }
}

void Kinds::kindsIs(const Kinds& other) {
    for (const auto& [kind, count] : other.counts_) {
        counts_[kind] += count;
    }
}

std::uint64_t Kinds::count(const std::string& kind) const {
    const auto found = counts_.find(kind);
    return found == counts_.end() ? 0 : found->second;
}

const std::vector<std::string>& Kinds::wanted() {
    static const std::vector<std::string> kinds{"create",
                                                "rewrite",
                                                "rename",
                                                "move in",
                                                "move out",
                                                "move over",
                                                "delete",
                                                "duplicate",
                                                "symlink",
                                                "mkdir",
                                                "fifo",
                                                "close of a file written before",
                                                "temporary name",
                                                "rename of a temporary name",
                                                "damaged over good",
                                                "good over damaged",
                                                "key add",
                                                "key link",
                                                "key unlink",
                                                "key clear",
                                                "refused to other hands",
                                                "restart",
                                                end};
    return kinds;
}

std::string Kinds::text() const {
    std::string text;
    for (const auto& [kind, count] : counts_) {
        text.append(text.empty() ? "" : ", ")
            .append(kind)
            .append(" ")
            .append(std::to_string(count));
    }
    return text;
}

} // namespace Vestrel::Tests
