// SPDX-License-Identifier: Apache-2.0
// The named log messages of the agent itself, beside those of the library.
#pragma once

#include "platform/zell/LogDescriptor.h"

#include <array>
#include <cstddef>

namespace Vestrel {

enum class AgentMessageId : std::size_t {
    drift,                // what differs
    loadFailureExplained, // file, keyring, verdict and why
};

inline constexpr std::array<Zell::LogDescriptor, 2> agentDescriptors{{
    {
        "VESTREL_INTEGRITY_DRIFT",
        "Record, kernel and directories had drifted apart: %s. Everything is rebuilt.",
        "Events were lost, or a keyring was changed in a way that the kernel does not announce. "
        "The agent reads keyrings and directories anew and loads what is missing",
        "If it is reported again and again, look at the state with \"vestrelctl status\".",
        Zell::severityWarning,
        0,
    },
    {
        "VESTREL_INTEGRITY_LOAD_KEY_EXPLANATION",
        "Certificate %s for keyring (%s): %s.",
        "A certificate could not be loaded, and this is why as far as can be known. \"vestrelctl "
        "check\" says the same",
        "See the troubleshooting page for the reason in parentheses.",
        Zell::severityWarning,
        0,
    },
}};

inline constexpr const Zell::LogDescriptor& agentDescriptor(AgentMessageId id) {
    return agentDescriptors[static_cast<std::size_t>(id)];
}

} // namespace Vestrel
