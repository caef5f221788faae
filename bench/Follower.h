// SPDX-License-Identifier: Apache-2.0
// A process that follows the directory of ".ima".
#pragma once

#include "bench/Process.h"

#include <keyutils.h>

#include <string>

namespace Vestrel::Bench {

// Alive and following from the end of the constructor until the destructor. A fresh process, whose
// memory owes nothing to the measurements before it.
class Follower {
public:
    enum class Kind {
        stateMachine,
        bare, // waits for inotify, adds the file that it names, and nothing else
    };

    Follower(Kind kind, key_serial_t ring);

    // What main() does in that process: `words` are what the constructor put on its command line.
    [[noreturn]] static void follow(const std::string& words);

    const Process& process() const { return process_; }

private:
    Process process_;
};

} // namespace Vestrel::Bench
