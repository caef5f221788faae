// SPDX-License-Identifier: Apache-2.0
// A child process that is measured from outside.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace Vestrel::Bench {

// Killed by the destructor, and by the kernel when the bench dies.
class Process {
public:
    // `words` start with the program, found by PATH. Its stderr goes to that file.
    Process(const std::vector<std::string>& words, const std::string& errorFile);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process();

    // Until it sleeps.
    void awaitRest() const;

    // Of all its threads.
    double processorNanoseconds() const;

    double residentBytes() const;

    // How often it was given the processor after it had waited.
    double wakeUps() const;

private:
    pid_t process_;
};

} // namespace Vestrel::Bench
