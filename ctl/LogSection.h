// SPDX-License-Identifier: Apache-2.0
// The log message records of the library that this process has loaded.
#pragma once

#include "platform/zell/LogDescriptor.h"

#include <span>

namespace Vestrel {

// The records in the library's section ".norvale_logmsg", in their order; they live as long as the
// process. Throws std::runtime_error when the library or its section cannot be found.
std::span<const Zell::LogDescriptor> logSection();

} // namespace Vestrel
