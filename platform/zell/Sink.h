// SPDX-License-Identifier: Apache-2.0
// A function of the host's that may replace itself.
#pragma once

#include <functional>
#include <optional>
#include <utility>

namespace Zell {

template <class Signature>
class Sink;

// Calls the function that it holds, if any. A function that is set while one is called takes its
// place when the call has ended, and that of calls inside it, be it by an exception.
template <class... Arguments>
class Sink<void(Arguments...)> {
public:
    using Function = std::function<void(Arguments...)>;

    explicit Sink(Function function = {}) : function_(std::move(function)) {}

    void functionIs(Function function) {
        if (calls_ == 0) {
            function_ = std::move(function);
        } else {
            next_ = std::move(function);
        }
    }

    void operator()(Arguments... arguments) {
        if (function_) {
            const Call call(*this);
            function_(arguments...);
        }
    }

private:
    class Call {
    public:
        explicit Call(Sink& sink) : sink_(sink) { ++sink_.calls_; }

        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

        ~Call() {
            if (--sink_.calls_ == 0 && sink_.next_) {
                sink_.function_ = *std::exchange(sink_.next_, std::nullopt);
            }
        }

    private:
        Sink& sink_;
    };

    Function function_;
    std::optional<Function> next_;
    unsigned calls_ = 0;
};

} // namespace Zell
