// SPDX-License-Identifier: Apache-2.0
// Has the kernel say what the descriptors on record are.
#include "tests/scenario/Watchers.h"

#include "tests/scenario/Rings.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <system_error>

namespace Vestrel::Tests {

namespace {

using Watchers = std::map<std::string, std::string>; // what is known of each, by keyring

std::string linkOf(int descriptor) {
    std::error_code error;
    const auto link =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error);
    return error ? "nothing" : link.string();
}

// The watches of an inotify instance, each as "wd:NUMBER ino:INODE mask:BITS".
std::string directoryWatches(int descriptor) {
    std::ifstream lines("/proc/self/fdinfo/" + std::to_string(descriptor));
    std::string watches;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string inotify, number, inode, device, mask;
        if (words >> inotify >> number >> inode >> device >> mask && inotify == "inotify") {
            watches.append(" ").append(number).append(" ").append(inode).append(" ").append(mask);
        }
    }
    return linkOf(descriptor) + watches;
}

bool hasMode(int descriptor, int mode) {
    const int flags = ::fcntl(descriptor, F_GETFL);
    return flags != -1 && (flags & O_ACCMODE) == mode;
}

std::string queue(int readEnd, int writeEnd) {
    const std::string link = linkOf(readEnd);
    const bool isPipe = link.starts_with("pipe:") && link == linkOf(writeEnd) &&
                        hasMode(readEnd, O_RDONLY) && hasMode(writeEnd, O_WRONLY);
    return isPipe ? "a pipe" : link + " and " + linkOf(writeEnd);
}

template <class Descriptors>
std::string registration(const Descriptors& descriptors, const Orvo::String& keyring, int number) {
    const auto* const found = descriptors.find(keyring);
    return found != nullptr && (*found)->descriptor() == number ? "registered" : "not registered";
}

Watchers observed(const IntegrityKeyringSm& sm) {
    Watchers watchers;
    for (auto each = sm.watcherInfos().iterator(); each; ++each) {
        const KeyringWatcherInfo& info = *each;
        std::ostringstream out;
        out << info.keyringName << " " << info.keyringId << ", watch " << info.keyringWatchId
            << " on " << queue(info.readFd, info.writeFd) << ", "
            << registration(sm.keyringWatchFileDescriptors(), each.key(), info.readFd)
            << ", directory watch " << info.inotifyWatchId << " of "
            << directoryWatches(info.inotifyFd) << ", "
            << registration(sm.inotifyDescriptors(), each.key(), info.inotifyFd);
        watchers[std::string(each.key().view())] = out.str();
    }
    return watchers;
}

ino_t inodeOf(const std::string& path) {
    struct stat status {};

    if (::stat(path.c_str(), &status) == -1) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return status.st_ino;
}

Watchers required(const SerialOf& serialOf) {
    Watchers watchers;
    int watch = 0;
    for (const Ring& ring : rings) {
        std::ostringstream out;
        out << ring.keyring << " " << serialOf(ring.keyring) << ", watch " << ++watch
            << " on a pipe, registered, directory watch 1 of anon_inode:inotify wd:1 ino:"
            << std::hex << inodeOf(directoryOf(ring.place)) << " mask:2c8, registered";
        watchers[ring.keyring] = out.str();
    }
    return watchers;
}

std::string textOf(const Watchers& watchers) {
    std::string text;
    for (const auto& [keyring, watcher] : watchers) {
        text += "  " + watcher + "\n";
    }
    return text;
}

} // namespace

std::optional<std::string> watcherDifference(const IntegrityKeyringSm& stateMachine,
                                             const SerialOf& serialOf) {
    const Watchers seen = observed(stateMachine);
    const Watchers wanted = required(serialOf);
    if (seen == wanted && stateMachine.inotifyDescriptors().size() == wanted.size() &&
        stateMachine.keyringWatchFileDescriptors().size() == wanted.size()) {
        return std::nullopt;
    }
    return "the watchers are\n" + textOf(seen) + "but should be\n" + textOf(wanted);
}

} // namespace Vestrel::Tests
