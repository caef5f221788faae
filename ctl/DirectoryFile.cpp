// SPDX-License-Identifier: Apache-2.0
// The steps of a safe change: write, sync, rename, sync.
#include "ctl/DirectoryFile.h"

#include "keymodel/TemporarySuffix.h"
#include "platform/zell/OwnedFd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace Vestrel {

namespace {

constexpr mode_t fileMode = 0644;

// Whatever of the temporary file is left when an exception leaves.
class Leftover {
public:
    explicit Leftover(const std::string& path) : path_(path) {}

    ~Leftover() {
        if (!isDone_) {
            unlink(path_.c_str());
        }
    }

    Leftover(const Leftover&) = delete;
    Leftover& operator=(const Leftover&) = delete;

    void done() { isDone_ = true; }

private:
    const std::string& path_;
    bool isDone_ = false;
};

void require(bool isDone, const std::string& what) {
    if (!isDone) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void writeAll(int fd, std::span<const std::uint8_t> bytes, const std::string& path) {
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        require(count >= 0 || errno == EINTR, path);
        bytes = bytes.subspan(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
}

void directorySync(const std::string& path) {
    const std::string directory = std::filesystem::path(path).parent_path().string();
    const Zell::OwnedFd fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    require(static_cast<bool>(fd) && fsync(fd.get()) == 0, directory);
}

} // namespace

void fileIs(const std::string& path, std::span<const std::uint8_t> bytes) {
    const std::string temporary = path + std::string(temporarySuffix);
    unlink(temporary.c_str()); // what an earlier writer left behind
    Zell::OwnedFd fd(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, fileMode));
    require(static_cast<bool>(fd), temporary);
    Leftover leftover(temporary);
    writeAll(fd.get(), bytes, temporary);
    require(fchmod(fd.get(), fileMode) == 0 && fsync(fd.get()) == 0, temporary);
    require(close(fd.release()) == 0, temporary);
    require(std::rename(temporary.c_str(), path.c_str()) == 0, path);
    leftover.done();
    directorySync(path);
}

void fileDel(const std::string& path) {
    require(unlink(path.c_str()) == 0, path);
    directorySync(path);
}

} // namespace Vestrel
