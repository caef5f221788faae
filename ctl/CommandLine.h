// SPDX-License-Identifier: Apache-2.0
// The command line of vestrelctl.
#pragma once

#include <ostream>

namespace Vestrel {

// Reads the command line, does what it says, and returns the exit status of the process.
int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

} // namespace Vestrel
