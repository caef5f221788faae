// SPDX-License-Identifier: Apache-2.0
// A client of a line protocol on a Unix stream socket, well-behaved or not.
#pragma once

#include "platform/zell/OwnedFd.h"

#include <functional>
#include <string>
#include <string_view>

namespace Vestrel::Tests {

/// Never blocks: what waits calls `step` between its tries, which lets a server in this process go
/// on, and gives up after a time that no working server needs. Steps that the system refuses abort.
class LineClient {
public:
    /// Polls for a moment, for servers of another process.
    static void pause();

    explicit LineClient(const std::string& path, std::function<void()> step = pause);

    /// Whether somebody accepted the connection's request.
    bool isConnected() const { return isConnected_; }

    /// Sends until everything is sent; false when the other side is gone.
    bool send(std::string_view bytes);
    /// Sends what fits now; returns how much it was.
    std::size_t sendSome(std::string_view bytes) const;
    /// Nothing more will be sent.
    void endOfRequests() const;
    /// The next line without its end. Empty at the end of the connection or when nothing comes.
    std::string line();
    /// A line for a line.
    std::string ask(const std::string& request);
    /// Whether the other side has ended the connection; waits for that, and forgets what came.
    bool isClosed();

private:
    bool receive(); // false at the end of the connection

    Zell::OwnedFd socket_;
    std::function<void()> step_;
    bool isConnected_ = false;
    std::string received_;
};

} // namespace Vestrel::Tests
