// SPDX-License-Identifier: Apache-2.0
// Command lines of vestrelctl, one argument a line; nothing that they ask for is done.
#include "ctl/CommandLine.h"
#include "tests/fuzz/ArgumentLines.h"
#include "tests/fuzz/Fuzz.h"

#include <sstream>

using namespace Vestrel;
using Tests::require;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Tests::ArgumentLines arguments("vestrelctl", Tests::textOf(data, size));
    std::ostringstream out;
    std::ostringstream err;
    auto status = ExitStatus::late; // none that a command line ends with
    const auto command = commandOf(arguments.count(), arguments.words(), out, err, status);
    if (command) {
        require(status == ExitStatus::late, "the status is untouched when there is a verb");
        require(static_cast<bool>(command->action), "the verb does something");
        require(out.str().empty() && err.str().empty(), "the user is told nothing yet");
    } else if (status == ExitStatus::done) {
        require(!out.str().empty() && err.str().empty(), "an answer is the result");
    } else {
        require(status == ExitStatus::wrongUsage, "nothing to do is an answer or wrong usage");
        require(out.str().empty() && !err.str().empty(), "wrong usage is explained on stderr");
    }
    return 0;
}
