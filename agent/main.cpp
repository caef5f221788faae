// SPDX-License-Identifier: Apache-2.0
// vestrel-agent: the host process.
#include "agent/Agent.h"
#include "agent/Options.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

namespace {

// A starter may have left some closed. What is opened next would get their numbers: messages for
// stderr would go there, and 0 stands for "none" in the state machines' records.
void standardDescriptorsAreOpen() {
    int opened = 0;
    do {
        opened = open("/dev/null", O_RDWR); // NOLINT(android-cloexec-open): like those it replaces
    } while (opened != -1 && opened <= STDERR_FILENO);
    if (opened != -1) {
        close(opened);
    }
}

} // namespace

int main(int argc, char** argv) {
    standardDescriptorsAreOpen();
    int status = Vestrel::ended;
    const auto options = Vestrel::agentOptions(argc, argv, status);
    if (!options) {
        return status;
    }
    try {
        return Vestrel::Agent(*options).run();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "vestrel-agent: %s\n", failure.what());
        return Vestrel::failed;
    }
}
