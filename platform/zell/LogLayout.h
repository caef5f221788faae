// SPDX-License-Identifier: Apache-2.0
// The line of one kind of message with its arguments taken out. Private to the log facility.
#pragma once

#include "platform/orvo/String.h"
#include "platform/zell/LogDescriptor.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Zell {

class LogLayout {
public:
    static constexpr std::string_view nameEnd = ": ";
    static constexpr std::string_view lineEnd = "\n";

    // Of no kind.
    LogLayout() = default;

    // Takes "%s" for the place of an argument and "%%" for a percent sign.
    explicit LogLayout(const LogDescriptor& descriptor);

    // The texts of a descriptor are constants, so that where they are says which they are.
    bool isOf(const LogDescriptor& descriptor) const noexcept {
        return format_ == descriptor.format && name_ == descriptor.name;
    }

    // The size of a line with these arguments, or more where they are too many.
    std::size_t longest(std::span<const Orvo::String> arguments) const noexcept;

    // Puts the line where there is room for the longest, and returns the place behind it. An
    // argument too few reads as empty.
    char* put(char* place, std::span<const Orvo::String> arguments) const noexcept;

private:
    void formatIs(std::string_view format);

    const char* name_ = nullptr;
    const char* format_ = nullptr;
    std::string plain_;               // all but the arguments
    std::vector<std::size_t> places_; // in it, of the arguments
};

} // namespace Zell
