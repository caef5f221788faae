// SPDX-License-Identifier: Apache-2.0
// Changes of a certificate directory turned into loads, reloads and removals.
#include "keymodel/IntegrityConstants.h"
#include "keymodel/TemporarySuffix.h"
#include "keyring/DirectoryEvent.h"
#include "keyring/IntegrityKeyringSm.h"
#include "keyring/KeyringCounters.h"
#include "platform/duolog/Duolog.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <map>
#include <system_error>

namespace Vestrel {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t bufferSize = 4096;

// Lives during one call of handleInotify(), in whose name it traces.
class DirectoryDrain {
public:
    DirectoryDrain(const Duolog::Operation& operation, IntegrityKeyringSm& stateMachine,
                   const Orvo::String& keyringName)
        : operation_(operation), stateMachine_(stateMachine), keyringName_(keyringName),
          directory_(IntegrityConstants().keyringPathPrefix(keyringName).view()),
          keyColl_(stateMachine.integrityKeyringColl()->keyring(keyringName)) {}

    void readAll(int descriptor);
    void pendingMovesSettle();

private:
    static Zell::TraceHandle& traceHandle() { return IntegrityKeyringSm::traceHandle(); }

    void records(std::span<const char> bytes);
    void record(const DirectoryEvent& event);
    void changed(const DirectoryEvent& event, const fs::path& path, bool monitored);
    void closedAfterWriting(const fs::path& path, bool monitored);
    void movedIn(std::uint32_t cookie, const fs::path& path);
    bool monitored(const fs::path& path) const;

    static Orvo::String text(const fs::path& path) { return path.string(); }

    const Duolog::Operation& operation_;
    IntegrityKeyringSm& stateMachine_;
    const Orvo::String keyringName_;
    const fs::path directory_;
    const Orvo::Ptr<IntegrityKeyColl> keyColl_;
    std::map<std::uint32_t, Orvo::String> pendingMoves_; // by cookie
};

void DirectoryDrain::readAll(int descriptor) {
    std::array<char, bufferSize> buffer{};
    for (;;) {
        DUOLOG_IN(operation_, 5, "readFd: ", descriptor, ", size: ", bufferSize);
        const ssize_t got = read(descriptor, buffer.data(), buffer.size());
        if (got == -1 && errno == EAGAIN) {
            DUOLOG_IN(operation_, 5, "No more to read");
            return;
        }
        if (got == -1) {
            DUOLOG_FAILED_IN(operation_, "read");
            return;
        }
        if (got == 0) {
            return;
        }
        const auto size = static_cast<std::size_t>(got);
        DUOLOG_IN(operation_, 5, "Read ", size, " bytes");
        if (size < DirectoryEvent::headerSize) {
            DUOLOG_IN(operation_, 5, "Read too few bytes for a valid notification");
            continue;
        }
        records(std::span<const char>(buffer).first(size));
    }
}

void DirectoryDrain::records(std::span<const char> bytes) {
    while (const auto event = DirectoryEvent::taken(bytes)) {
        record(*event);
    }
}

void DirectoryDrain::record(const DirectoryEvent& event) {
    DUOLOG_IN(operation_, 5, "Received notification for watch ", event.watch, " with mask ",
              event.mask, ", cookie ", event.cookie, ", name (size ", event.nameLength, ") ",
              event.name);
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        KeyringCounters::of(keyringName_).doubtIs(&KeyringCounters::overflows);
    }
    const fs::path path = directory_ / event.name;
    if ((event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0) {
        KeyringCounters::of(keyringName_).goneIs(path.native());
    }
    if (event.name.ends_with(temporarySuffix)) {
        DUOLOG_IN(operation_, 5, "Skipping temporary file");
        return;
    }
    const bool isMonitored = monitored(path);
    DUOLOG_IN(operation_, 5, path, " was monitored: ", isMonitored);
    changed(event, path, isMonitored);
}

void DirectoryDrain::changed(const DirectoryEvent& event, const fs::path& path, bool isMonitored) {
    if ((event.mask & IN_CLOSE_WRITE) != 0) {
        DUOLOG_IN(operation_, 5, path, " was closed after writing");
        closedAfterWriting(path, isMonitored);
    } else if ((event.mask & IN_DELETE) != 0 && isMonitored) {
        DUOLOG_IN(operation_, 5, path, " has been deleted");
        stateMachine_.removeFile(keyringName_, text(path));
    } else if ((event.mask & IN_MOVED_FROM) != 0) {
        DUOLOG_IN(operation_, 5, path, " was moved from this directory");
        if (isMonitored) {
            pendingMoves_[event.cookie] = text(path);
        }
    } else if ((event.mask & IN_MOVED_TO) != 0) {
        DUOLOG_IN(operation_, 5, path, " was moved to this directory");
        movedIn(event.cookie, path);
    }
}

void DirectoryDrain::closedAfterWriting(const fs::path& path, bool isMonitored) {
    std::error_code gone;
    if (!fs::is_regular_file(fs::status(path, gone))) {
        DUOLOG_IN(operation_, 5, "Non-regular file: ", path);
    } else if (isMonitored) {
        stateMachine_.modifyFile(keyringName_, text(path));
    } else {
        stateMachine_.loadFile(keyringName_, text(path));
    }
}

void DirectoryDrain::movedIn(std::uint32_t cookie, const fs::path& path) {
    stateMachine_.loadFile(keyringName_, text(path));
    const auto pending = pendingMoves_.find(cookie);
    if (pending == pendingMoves_.end()) {
        DUOLOG_IN(operation_, 5, "Moved from the outside world");
        return;
    }
    DUOLOG_IN(operation_, 5, "Moved from", pending->second);
    stateMachine_.removeFile(keyringName_, pending->second);
    pendingMoves_.erase(pending);
}

void DirectoryDrain::pendingMovesSettle() {
    for (const auto& [cookie, path] : pendingMoves_) {
        stateMachine_.removeFile(keyringName_, path);
    }
}

bool DirectoryDrain::monitored(const fs::path& path) const {
    return keyColl_ && keyColl_->fileToDescriptionHas(text(path));
}

} // namespace

void IntegrityKeyringSm::handleInotify(const Orvo::String& keyringName) {
    const auto* const descriptor = inotifyDescriptors().find(keyringName);
    if (descriptor == nullptr ||
        (*descriptor)->descriptor() == Zell::FileDescriptor::noDescriptor) {
        return;
    }
    DUOLOG(5, keyringName);
    const Duolog::Operation operation = DUOLOG_OPERATION;
    DirectoryDrain drain(operation, *this, keyringName);
    drain.readAll((*descriptor)->descriptor());
    drain.pendingMovesSettle();
}

} // namespace Vestrel
