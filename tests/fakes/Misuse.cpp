// SPDX-License-Identifier: Apache-2.0
// Implements the fatal message of the test models.
#include "tests/fakes/Misuse.h"

#include <cstdio>
#include <cstdlib>

namespace Vestrel::Tests {

void misuse(std::string_view who, std::string_view what) {
    std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(who.size()), who.data(),
                 static_cast<int>(what.size()), what.data());
    std::abort();
}

} // namespace Vestrel::Tests
