// SPDX-License-Identifier: Apache-2.0
// Keeps the recorded calls and the prepared answers.
#include "tests/fakes/SystemCalls.h"

#include "tests/fakes/Misuse.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Vestrel::Tests {

namespace {

constexpr const char* who = "SystemCalls";

constinit SystemCalls* currentCalls = nullptr;

} // namespace

SystemCalls::SystemCalls()
    : script_(who, {"pipe2", "ioctl", "inotify_init1", "inotify_add_watch", "inotify_rm_watch",
                    "read", "close", "socket", "bind", "unlink"}) {
    if (currentCalls != nullptr) {
        misuse(who, "one is installed already");
    }
    currentCalls = this;
}

SystemCalls::~SystemCalls() {
    currentCalls = nullptr;
}

SystemCalls* SystemCalls::current() {
    return currentCalls;
}

std::vector<std::string> SystemCalls::callsOf(std::initializer_list<std::string_view> names) const {
    std::vector<std::string> chosen;
    for (const std::string& call : calls_) {
        const auto name = std::string_view(call).substr(0, call.find(' '));
        if (std::find(names.begin(), names.end(), name) != names.end()) {
            chosen.push_back(call);
        }
    }
    return chosen;
}

void SystemCalls::failNth(std::string_view name, std::size_t nth, int error) {
    script_.failNth(name, nth, error);
}

void SystemCalls::answerNext(std::string_view name, long value, int error) {
    script_.answerNth(name, 1, Answer{value, error});
}

void SystemCalls::feedRead(int descriptor, Bytes bytes) {
    reads_[descriptor].push_back({{bytes.begin(), bytes.end()}, 0});
}

void SystemCalls::feedRead(int descriptor, std::string_view text) {
    feedRead(descriptor, Bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

void SystemCalls::feedReadError(int descriptor, int error) {
    if (error <= 0) {
        misuse(who, "a failed read needs a positive errno");
    }
    reads_[descriptor].push_back({{}, error});
}

void SystemCalls::feedReadEnd(int descriptor) {
    reads_[descriptor].push_back({{}, 0});
}

std::size_t SystemCalls::pending() const {
    std::size_t count = script_.pending();
    for (const auto& [descriptor, reads] : reads_) {
        count += reads.size();
    }
    return count;
}

std::optional<ssize_t> SystemCalls::fedRead(int descriptor, void* buffer, std::size_t size) {
    const auto fed = reads_.find(descriptor);
    if (fed == reads_.end() || fed->second.empty()) {
        return std::nullopt;
    }
    const Read read = std::move(fed->second.front());
    fed->second.pop_front();
    if (read.error != 0) {
        errno = read.error;
        return -1;
    }
    const std::size_t given = std::min(size, read.bytes.size());
    if (given != 0) {
        std::memcpy(buffer, read.bytes.data(), given);
    }
    return static_cast<ssize_t>(given);
}

const char* SystemCalls::redirected(const char* path) const {
    const auto found = redirected_.find(std::string_view(path));
    return found == redirected_.end() ? path : found->second.c_str();
}

} // namespace Vestrel::Tests
