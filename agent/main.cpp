// SPDX-License-Identifier: Apache-2.0
// vestrel-agent: the host process.
#include "agent/Agent.h"
#include "agent/Options.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
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
