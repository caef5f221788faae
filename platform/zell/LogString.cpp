// SPDX-License-Identifier: Apache-2.0
// Arguments of a log message and their hash.
#include "platform/zell/LogString.h"

#include "platform/zell/Fnv.h"

#include <algorithm>

namespace Zell {

unsigned Impl::logArgsHash(const LogString& arguments, unsigned count) {
    std::uint32_t hash = fnvStart;
    for (unsigned i = 0; i < std::min(count, arguments.argumentCount); ++i) {
        hash = fnv1a(arguments.str(i), hash);
        hash = fnv1a(std::string_view("\0", 1), hash); // "a", "bc" is not "ab", "c"
    }
    return hash;
}

} // namespace Zell
