// SPDX-License-Identifier: Apache-2.0
// Lines that wait for others on their way to stderr.
#include "platform/zell/StderrLines.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <utility>

namespace Zell {

namespace {

struct Waiting {
    std::array<char, PIPE_BUF> bytes;
    std::size_t size;
    unsigned holders; // objects that have lines wait

    std::size_t room() const noexcept { return bytes.size() - size; }
};

constinit Waiting waiting{};

void write(std::string_view text) noexcept {
    while (!text.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

void flush() noexcept {
    if (const std::size_t size = std::exchange(waiting.size, 0U); size != 0) {
        write({waiting.bytes.data(), size});
    }
}

} // namespace

StderrLines::Together::Together() noexcept {
    ++waiting.holders;
}

StderrLines::Together::~Together() {
    if (--waiting.holders == 0) {
        flush();
    }
}

void StderrLines::put(std::string_view line) noexcept {
    if (waiting.holders == 0 || line.size() > waiting.bytes.size()) {
        putNow(line);
        return;
    }
    if (line.size() > waiting.room()) {
        flush();
    }
    waiting.size += line.copy(waiting.bytes.data() + waiting.size, line.size());
}

void StderrLines::putNow(std::string_view line) noexcept {
    flush();
    write(line);
}

} // namespace Zell
