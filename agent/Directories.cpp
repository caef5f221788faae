// SPDX-License-Identifier: Apache-2.0
// Creation of missing certificate directories.
#include "agent/Directories.h"

#include "keymodel/IntegrityConstants.h"
#include "keyring/IntegrityKeyringSm.h"
#include "platform/zell/StderrLines.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace Vestrel {

namespace {

constexpr mode_t directoryMode = 0755;

bool directoryIs(const Orvo::String& path) {
    if (mkdir(path.c_str(), directoryMode) == 0) {
        // Whatever the umask: the mode is what operators find in the manual.
        return chmod(path.c_str(), directoryMode) == 0;
    }
    return errno == EEXIST;
}

void provide(const char* kind, const Orvo::String& path) {
    if (!directoryIs(path)) {
        Zell::StderrLines::putNow(std::string("vestrel-agent: cannot create ") + kind + " " +
                                  path.c_str() + ": " + std::strerror(errno) + "\n");
    }
}

constexpr const char* certificateDirectory = "certificate directory";

} // namespace

void certificateDirectoriesIs() {
    const IntegrityConstants constants;
    provide(certificateDirectory, constants.integrityKeyPathPrefix());
    for (const char* const keyringName : IntegrityKeyringSm::keyringNames) {
        provide(certificateDirectory, constants.keyringPathPrefix(keyringName));
    }
}

void statusDirectoryIs(const char* path) {
    provide("directory", path);
}

} // namespace Vestrel
