// SPDX-License-Identifier: Apache-2.0
// Goes through all the ways like the digits of a number are counted up.
#include "tests/scenario/World.h"

namespace Vestrel::Tests {

std::size_t Choices::operator()(std::size_t count) {
    if (made_ == choices_.size()) {
        choices_.push_back({0, count});
    }
    return choices_[made_++].taken;
}

bool Choices::next() {
    choices_.resize(made_);
    made_ = 0;
    while (!choices_.empty()) {
        if (++choices_.back().taken < choices_.back().count) {
            return true;
        }
        choices_.pop_back();
    }
    return false;
}

} // namespace Vestrel::Tests
