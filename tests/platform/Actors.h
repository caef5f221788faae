// SPDX-License-Identifier: Apache-2.0
// Nodes and subscribers that note what happens to them, and pipes to make descriptors ready with.
#pragma once

#include "platform/orvo/Node.h"
#include "platform/orvo/Ptr.h"
#include "platform/orvo/Publisher.h"
#include "platform/zell/FileDescriptor.h"
#include "platform/zell/OwnedFd.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <functional>
#include <string_view>
#include <vector>

namespace Vestrel::Tests {

// Hears of publications, and does what the test asks it to.
class Listener : public Orvo::Subscriber {
public:
    using Subscriber::Subscriber;

    struct Heard {
        Orvo::FieldId field;
        Orvo::Value oldValue;
        Orvo::Value newValue;
        friend bool operator==(const Heard& a, const Heard& b) = default;
    };

    void on_child(Orvo::Publisher* /*publisher*/, Orvo::Subscriber* /*subscriber*/,
                  Orvo::FieldId field, const Orvo::Value& oldValue,
                  const Orvo::Value& newValue) override {
        heard.push_back({field, oldValue, newValue});
        if (reaction) {
            reaction();
        }
    }

    std::size_t readableReports() const {
        std::size_t reports = 0;
        for (const Heard& each : heard) {
            reports += each.field == Zell::FileDescriptor::readableNotificationField ? 1U : 0U;
        }
        return reports;
    }

    std::vector<Heard> heard;
    std::function<void()> reaction;
};

// A node that embeds a listener and notes its end.
class Actor : public Orvo::Node {
public:
    explicit Actor(bool* gone = nullptr) : gone_(gone) {}

    ~Actor() override {
        if (gone_ != nullptr) {
            *gone_ = true;
        }
    }

    Listener listener{*this};

private:
    bool* gone_;
};

// A pipe that blocks, so that nothing but the code under test makes it non-blocking.
class Pipe {
public:
    Pipe() {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) == -1) {
            ADD_FAILURE() << "pipe2 failed";
        }
        reader_.reset(ends[0]);
        writer_.reset(ends[1]);
    }

    int reader() const noexcept { return reader_.get(); }

    void write(std::string_view text = "x") const {
        EXPECT_EQ(::write(writer_.get(), text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
    }

    // Reads until EAGAIN; the reading end must be non-blocking.
    void drain() const {
        std::array<char, 64> buffer{};
        while (::read(reader_.get(), buffer.data(), buffer.size()) > 0) {
        }
        EXPECT_EQ(errno, EAGAIN);
    }

    bool nonBlocking() const { return (fcntl(reader_.get(), F_GETFL) & O_NONBLOCK) != 0; }

    void closeReader() { reader_.reset(); }

private:
    Zell::OwnedFd reader_;
    Zell::OwnedFd writer_;
};

} // namespace Vestrel::Tests
