// SPDX-License-Identifier: Apache-2.0
// The places of a scenario as they should be: what a step makes of them, and which events the
// kernel reports of it.
#pragma once

#include "tests/scenario/Step.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Vestrel::Tests {

/// An event of a certificate directory.
struct Event {
    std::uint32_t mask;
    std::string name;
    std::uint32_t cookie;
};

using Events = std::vector<Event>;

/// Copied freely, so that a step can be tried.
class Tree {
public:
    enum class Kind { file, directory, fifo, link };

    struct Node {
        Kind kind;
        std::string text; // a file's content, where a link leads to
        std::string path; // where it is, or was last
    };

    struct Found {
        const Node* node; // null when there is an error
        int error;        // the errno of opening it
    };

    /// Whether the system would do the step and the step is one of the file system's.
    bool allows(const Step& step) const;
    /// Only what allows() allows.
    void apply(const Step& step);

    /// What the watch of the place has to report since the last call of eventsForget().
    const Events& events(const std::string& place) const;

    void eventsForget() { events_.clear(); }

    /// What opening the path gives, links followed.
    Found opened(const std::string& path) const;
    /// What stands in a place, by path; links are not followed.
    std::map<std::string, Node> entries(const std::string& place) const;

    bool hasHandle(const std::string& handle) const { return handles_.contains(handle); }

    static bool isFileStep(const Step& step);

private:
    const Node* at(const std::string& path) const;
    std::optional<std::string> followed(std::string path) const;
    bool allowsWriting(const std::string& path) const;
    bool allowsMoving(const std::string& from, const std::string& to) const;
    void make(Kind kind, const std::string& path, const std::string& text);
    std::size_t written(const std::string& path, const std::string& content);
    void move(const std::string& from, const std::string& to);
    void report(std::uint32_t mask, const std::string& path, std::uint32_t cookie = 0);

    std::vector<Node> nodes_;
    std::map<std::string, std::size_t> names_;   // path -> node
    std::map<std::string, std::size_t> handles_; // handle -> node
    std::map<std::string, Events> events_;       // by place
    std::uint32_t cookie_ = 0;
};

} // namespace Vestrel::Tests
