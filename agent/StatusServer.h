// SPDX-License-Identifier: Apache-2.0
// A socket on which clients ask one line and are answered one line.
#pragma once

#include "platform/orvo/Ptr.h"
#include "platform/zell/ActivityManager.h"
#include "platform/zell/IoWatch.h"
#include "platform/zell/OwnedFd.h"

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Vestrel {

// Served by the event loop, one request of one client in a turn. No client can hold up the loop or
// have more memory than its line and one answer: while an answer is not taken, its client is not
// read. Nothing is timed: when there are too many clients, the one that has been silent for
// longest goes.
class StatusServer {
public:
    static constexpr std::size_t maxLine = std::size_t{64} * 1024; // of a request, without its end
    static constexpr std::size_t maxClients = 16;

    // From a request to its answer, both without the line's end.
    using Answer = std::function<std::string(std::string_view request)>;

    // Listens at the path, mode 0600, in place of a socket that nobody serves any more. Throws
    // std::system_error when that cannot be done, also (EADDRINUSE) when somebody does serve it.
    StatusServer(const Orvo::Ptr<Zell::ActivityManager>& loop, std::string path, Answer answer,
                 std::string tooLong);

    // Removes the socket.
    ~StatusServer();

    StatusServer(const StatusServer&) = delete;
    StatusServer& operator=(const StatusServer&) = delete;

    std::size_t clients() const { return clients_.size(); }

private:
    class Client;
    using Clients = std::list<Client>;

    void accept();
    void pauseAccepting();
    void serve(Clients::iterator client);

    Orvo::Ptr<Zell::ActivityManager> loop_;
    std::string path_;
    Answer answer_;
    std::string tooLong_; // what a request that is too long is answered
    Zell::OwnedFd socket_;
    std::unique_ptr<Zell::IoWatch> watch_;
    Clients clients_; // the one that was served last is last
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace Vestrel
