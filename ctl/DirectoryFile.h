// SPDX-License-Identifier: Apache-2.0
// Changes of certificate directories that are never seen half done, not even after a power cut.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace Vestrel {

// Writes the bytes under the temporary name, syncs them, renames the file to `path`, and syncs the
// directory. What stood there is replaced. Throws std::system_error, with nothing changed at
// `path` unless it is the last step that failed.
void fileIs(const std::string& path, std::span<const std::uint8_t> bytes);

// Removes the file and syncs its directory. Throws std::system_error.
void fileDel(const std::string& path);

} // namespace Vestrel
