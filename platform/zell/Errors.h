// SPDX-License-Identifier: Apache-2.0
// The exceptions that the framework raises for misuse of its attribute operations.
#pragma once

#include "platform/Export.h"

#include <stdexcept>

namespace Zell {

// A mutator was given a null pointer; nothing was changed.
class VESTREL_EXPORT NullArgumentError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

// The hash of a type was asked for that has none.
class VESTREL_EXPORT NonHashableTypeError : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

// An attribute that identifies its record was written through reflection, or an attribute, type or
// argument list was named that the type does not have.
class VESTREL_EXPORT AttributeError : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

// A text is not the text form of the record that it should hold.
class VESTREL_EXPORT AttributeTextError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace Zell
