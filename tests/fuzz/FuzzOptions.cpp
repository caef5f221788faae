// SPDX-License-Identifier: Apache-2.0
// Command lines of the agent, one argument a line.
#include "agent/Options.h"
#include "tests/fuzz/ArgumentLines.h"
#include "tests/fuzz/Fuzz.h"

#include <iostream>
#include <streambuf>

using Vestrel::Tests::require;

namespace {

// Takes all that is written, unlike a stream without a buffer.
class Nowhere : public std::streambuf {
protected:
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Nowhere& nowhere = *new Nowhere; // std::cout is flushed after static objects are gone
    std::cout.rdbuf(&nowhere);              // the texts for the user
    std::cerr.rdbuf(&nowhere);
    Vestrel::Tests::ArgumentLines arguments("vestrel-agent", Vestrel::Tests::textOf(data, size));
    int status = -1;
    const auto options = Vestrel::agentOptions(arguments.count(), arguments.words(), status);
    if (!options) {
        require(status == Vestrel::ended || status == Vestrel::wrongUsage,
                "the agent ends with 0 or 2 when there is nothing to do");
        return 0;
    }
    require(status == -1, "the status is untouched when the agent is to run");
    require(options->traceLevel >= 0 && options->traceLevel <= 5, "the trace level is 0 to 5");
    require(options->driftInterval >= 0 && options->driftInterval <= 86400,
            "the interval is a day at most");
    return 0;
}
