// SPDX-License-Identifier: Apache-2.0
// The argument list of one log message.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/String.h"
#include "platform/zell/Assertion.h"

#include <array>
#include <cstddef>
#include <span>
#include <utility>

namespace Zell {

// Holds up to maxArguments texts; an argument that was not set is empty.
class VESTREL_EXPORT LogString {
public:
    static constexpr std::size_t maxArguments = 8;

    unsigned argumentCount = 0;
    unsigned hash = 0; // of the arguments that take part in rate limiting

    // An index beyond maxArguments is the fatal assertion "index < maxArguments".
    void strIs(unsigned index, const Orvo::String& text) {
        ZELL_ASSERT("LogString", index < maxArguments);
        texts_[index] = text;
    }

    void strIs(unsigned index, Orvo::String&& text) {
        ZELL_ASSERT("LogString", index < maxArguments);
        texts_[index] = std::move(text);
    }

    const Orvo::String& str(unsigned index) const {
        ZELL_ASSERT("LogString", index < maxArguments);
        return texts_[index];
    }

    // The first argumentCount texts. More than maxArguments is the fatal assertion "argumentCount
    // <= maxArguments".
    std::span<const Orvo::String> texts() const {
        ZELL_ASSERT("LogString", argumentCount <= maxArguments);
        return std::span(texts_).first(argumentCount);
    }

private:
    std::array<Orvo::String, maxArguments> texts_;
};

namespace Impl {

// A hash of the first `count` arguments (all of them when there are fewer); of nothing for 0.
VESTREL_EXPORT unsigned logArgsHash(const LogString& arguments, unsigned count);

} // namespace Impl

} // namespace Zell
