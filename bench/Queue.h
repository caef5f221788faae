// SPDX-License-Identifier: Apache-2.0
// A log daemon that fills the state machine's socket between measurements.
#pragma once

#include "platform/zell/OwnedFd.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace Vestrel::Bench {

class Queue {
public:
    // Connects to the socket of a state machine that is there.
    Queue();

    // Sends lines, in turn, until the queue is full or holds `most`; returns how many it took.
    std::size_t fill(const std::vector<std::string_view>& lines, std::size_t most);

private:
    Zell::OwnedFd socket_;
};

// Waits while the other side's queue is full.
class BlockingSender {
public:
    explicit BlockingSender(const char* path);

    void send(std::string_view line);

private:
    Zell::OwnedFd socket_;
};

} // namespace Vestrel::Bench
