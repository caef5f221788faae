// SPDX-License-Identifier: Apache-2.0
// The names under which files of certificate directories are written.
#pragma once

#include <string_view>

namespace Vestrel {

// Events of files whose names end so are ignored; who writes a file renames it when it is whole.
inline constexpr std::string_view temporarySuffix = ".integrity-tmp";

} // namespace Vestrel
