// SPDX-License-Identifier: Apache-2.0
// Writes one line of the text trace.
#pragma once

#include "platform/zell/TraceHandle.h"

#include <sstream>
#include <string_view>

namespace Zell {

// Collects the values of one line and hands it to the sink when it goes.
class TraceHelper {
public:
    TraceHelper(const TraceHandle& handle, int level, std::string_view operation)
        : handle_(handle), level_(level) {
        text_.exceptions(std::ios_base::badbit);
        text_ << operation << ": ";
    }

    TraceHelper(const TraceHelper&) = delete;
    TraceHelper& operator=(const TraceHelper&) = delete;

    ~TraceHelper() { traceLineIs({handle_.name(), level_, text_.view()}); }

    TraceHelper& operator<<(std::string_view value) {
        text_ << value;
        return *this;
    }

private:
    const TraceHandle& handle_;
    int level_;
    std::ostringstream text_;
};

} // namespace Zell
