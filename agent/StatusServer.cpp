// SPDX-License-Identifier: Apache-2.0
// Listening, reading requests, writing answers.
#include "agent/StatusServer.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <system_error>
#include <utility>

namespace Vestrel {

namespace {

using Readiness = Zell::IoWatch::Readiness;

constexpr int acceptsPerTurn = 16;
constexpr int backlog = 64;
constexpr std::size_t readSize = 16384;

[[noreturn]] void refuse(const char* call) {
    throw std::system_error(errno, std::generic_category(), call);
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        refuse(path.c_str());
    }
    path.copy(address.sun_path, path.size());
    return address;
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

// A socket that a process which was killed has left behind refuses connections.
bool isServed(const sockaddr_un& address) {
    const Zell::OwnedFd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return connect(probe.get(), generic(address), sizeof address) == 0 || errno == EAGAIN;
}

Zell::OwnedFd listeningAt(const std::string& path) {
    const sockaddr_un address = addressOf(path);
    if (isServed(address)) {
        errno = EADDRINUSE;
        refuse(path.c_str());
    }
    Zell::OwnedFd made(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!made) {
        refuse("socket");
    }
    unlink(path.c_str());
    const mode_t before = umask(0177); // from the first moment on
    const int bound = bind(made.get(), generic(address), sizeof address);
    umask(before);
    if (bound == -1 || listen(made.get(), backlog) == -1) {
        refuse(path.c_str());
    }
    return made;
}

} // namespace

// What one client has sent and is still to get.
class StatusServer::Client {
public:
    explicit Client(int socket) : socket_(socket) {}

    void watchIs(const Orvo::Ptr<Zell::ActivityManager>& loop, Zell::ActivityManager::Handler on) {
        watch_.emplace(loop, socket_.get(), Readiness::reading, std::move(on));
    }

    // One turn. False when the client is to go.
    bool turn(const StatusServer& server);

private:
    bool receive();
    bool send();
    bool nextRequest(std::string& request);
    bool hasRequest() const;
    Readiness wanted() const;

    Zell::OwnedFd socket_;
    std::optional<Zell::IoWatch> watch_;
    std::string received_;
    std::string answer_;   // what of it was not sent yet
    bool isEnded_ = false; // nothing more is read
};

bool StatusServer::Client::turn(const StatusServer& server) {
    if (answer_.empty() && !hasRequest() && !receive()) {
        return false;
    }
    if (std::string request; answer_.empty() && nextRequest(request)) {
        answer_ = server.answer_(request) + "\n";
    } else if (answer_.empty() && received_.size() > maxLine) {
        answer_ = server.tooLong_ + "\n";
        received_.clear();
        isEnded_ = true;
    }
    if (!send()) {
        return false;
    }
    const Readiness next = wanted();
    if (next != Readiness::none) {
        watch_->readinessIs(next);
    }
    return next != Readiness::none;
}

// Takes what is there, but not more than a turn should.
bool StatusServer::Client::receive() {
    std::array<char, readSize> buffer; // NOLINT: filled by recv()
    const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), 0);
    if (size == -1) {
        return errno == EAGAIN || errno == EINTR;
    }
    isEnded_ = size == 0;
    received_.append(buffer.data(), static_cast<std::size_t>(size));
    return true;
}

bool StatusServer::Client::send() {
    if (answer_.empty()) {
        return true;
    }
    const ssize_t size = ::send(socket_.get(), answer_.data(), answer_.size(), MSG_NOSIGNAL);
    if (size == -1) {
        return errno == EAGAIN || errno == EINTR;
    }
    answer_.erase(0, static_cast<std::size_t>(size));
    if (answer_.empty()) {
        answer_.shrink_to_fit();
    }
    return true;
}

// The last request may end with the connection instead of a line's end.
bool StatusServer::Client::hasRequest() const {
    const std::size_t end = received_.find('\n');
    return end == std::string::npos ? isEnded_ && !received_.empty() : end <= maxLine;
}

bool StatusServer::Client::nextRequest(std::string& request) {
    while (hasRequest()) {
        request = received_.substr(0, received_.find('\n'));
        received_.erase(0, request.size() + 1);
        if (!request.empty() && request.size() <= maxLine) {
            return true;
        }
    }
    return false;
}

// Writing also in order to have another turn for what was received already.
Readiness StatusServer::Client::wanted() const {
    if (!answer_.empty() || hasRequest()) {
        return Readiness::writing;
    }
    return isEnded_ ? Readiness::none : Readiness::reading;
}

StatusServer::StatusServer(const Orvo::Ptr<Zell::ActivityManager>& loop, std::string path,
                           Answer answer, std::string tooLong)
    : loop_(loop), path_(std::move(path)), answer_(std::move(answer)), tooLong_(std::move(tooLong)),
      socket_(listeningAt(path_)),
      watch_(std::make_unique<Zell::IoWatch>(loop_, socket_.get(), Readiness::reading,
                                             [this] { accept(); })) {}

StatusServer::~StatusServer() {
    unlink(path_.c_str());
}

void StatusServer::accept() {
    for (int i = 0; i < acceptsPerTurn; ++i) {
        const int socket = accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (socket == -1) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                pauseAccepting();
            }
            return;
        }
        const auto client = clients_.emplace(clients_.end(), socket);
        client->watchIs(loop_, [this, client] { serve(client); });
        if (clients_.size() > maxClients) {
            clients_.pop_front();
        }
    }
}

// Who cannot be accepted would be reported in every turn.
void StatusServer::pauseAccepting() {
    watch_->readinessIs(Readiness::none);
    loop_->afterIs(Orvo::Duration(std::chrono::seconds(1)), [this, held = std::weak_ptr(alive_)] {
        if (!held.expired()) {
            watch_->readinessIs(Readiness::reading);
        }
    });
}

void StatusServer::serve(Clients::iterator client) {
    if (client->turn(*this)) {
        clients_.splice(clients_.end(), clients_, client);
    } else {
        clients_.erase(client);
    }
}

} // namespace Vestrel
