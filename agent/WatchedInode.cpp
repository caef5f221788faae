// SPDX-License-Identifier: Apache-2.0
// What /proc says of an inotify descriptor.
#include "agent/WatchedInode.h"

#include <fstream>
#include <string>
#include <string_view>

namespace Vestrel {

unsigned long watchedInode(int inotifyFd) {
    std::ifstream info("/proc/self/fdinfo/" + std::to_string(inotifyFd));
    const std::string_view field = " ino:";
    for (std::string line; std::getline(info, line);) {
        if (const std::size_t at = line.find(field);
            line.starts_with("inotify ") && at != std::string::npos) {
            return std::stoul(line.substr(at + field.size()), nullptr, 16);
        }
    }
    return 0;
}

} // namespace Vestrel
