// SPDX-License-Identifier: Apache-2.0
// The named log messages of the library and the handles that raise them.
#pragma once

#include "platform/orvo/Duration.h"
#include "platform/zell/LogDescriptor.h"
#include "platform/zell/LogHandle.h"

#include <array>
#include <cstddef>

namespace Vestrel {

// The position of each record in the log descriptor section.
enum class LogMessageId : std::size_t {
    integrityLoadKeyFail, // file, keyring, error text
    integrity,            // record type, cause, file, command
    warning,
    measuredBootPcrConfigWarning,
    bootLoaderDeprecation,
};

inline constexpr std::size_t logMessageCount = 5;

// The records, back to back in the section ".norvale_logmsg".
extern const std::array<Zell::LogDescriptor, logMessageCount> logDescriptors;

// One handle per record, all with the facility's own limit. Each source that raises messages owns a
// set, made at library load.
struct LogHandles {
    Zell::LogHandle VESTREL_INTEGRITY_LOAD_KEY_FAIL = handle(LogMessageId::integrityLoadKeyFail);
    Zell::LogHandle VESTREL_INTEGRITY = handle(LogMessageId::integrity);
    Zell::LogHandle VESTREL_WARNING = handle(LogMessageId::warning);
    Zell::LogHandle MEASUREDBOOT_PCR_CONFIG_WARNING =
        handle(LogMessageId::measuredBootPcrConfigWarning);
    Zell::LogHandle BOOT_LOADER_DEPRECATION_WARNING = handle(LogMessageId::bootLoaderDeprecation);

private:
    static Zell::LogHandle handle(LogMessageId id) {
        return {&logDescriptors[static_cast<std::size_t>(id)], Orvo::Duration(), 1.0, 0U, 0U};
    }
};

} // namespace Vestrel
