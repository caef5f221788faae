// SPDX-License-Identifier: Apache-2.0
// The texts of a log message record as people read them.
#pragma once

#include "platform/zell/LogDescriptor.h"

#include <string>
#include <string_view>

namespace Vestrel {

namespace Impl {

// Some of the texts are sentences without their full stop.
inline std::string sentence(std::string_view text) {
    return std::string(text) + (text.ends_with('.') ? "" : ".");
}

} // namespace Impl

inline std::string explanationText(const Zell::LogDescriptor& record) {
    return Impl::sentence(record.explanation);
}

// The markers in words.
inline std::string actionText(const Zell::LogDescriptor& record) {
    const std::string_view action = record.recommendedAction;
    if (action == Zell::contactSupportIfItPersists) {
        return "Contact support if the condition persists.";
    }
    if (action == Zell::noActionIsRequired) {
        return "No action is required.";
    }
    return Impl::sentence(action);
}

} // namespace Vestrel
