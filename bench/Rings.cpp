// SPDX-License-Identifier: Apache-2.0
// Plain keyrings under the names of the kernel's integrity keyrings.
#include "bench/Rings.h"

#include "bench/Clock.h"
#include "platform/Export.h"
#include "platform/zell/OwnedFd.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace Vestrel::Bench {

namespace {

constexpr const char* imaName = ".ima";

key_serial_t plainRing = 0; // 0: none
double searches = 0;        // in microseconds

using Find = key_serial_t(const char* type, const char* description, key_serial_t destination);

Find& realFind() {
    static auto* const find =
        reinterpret_cast<Find*>(dlsym(RTLD_NEXT, "find_key_by_type_and_desc"));
    return *find;
}

key_serial_t demand(key_serial_t result, const char* step) {
    if (result == -1) {
        std::fprintf(stderr, "%s: %s\n", step, std::strerror(errno));
        std::exit(1);
    }
    return result;
}

key_serial_t madePlainRing(const char* description) {
    const key_serial_t ring = demand(
        add_key("keyring", description, nullptr, 0, KEY_SPEC_SESSION_KEYRING), "add_key: keyring");
    // Children do not possess it, but are of the same user.
    demand(static_cast<key_serial_t>(keyctl_setperm(ring, KEY_POS_ALL | KEY_USR_ALL)),
           "keyctl_setperm");
    return ring;
}

} // namespace

bool kernelHasImaKeyring() {
    static const bool has = realFind()("keyring", imaName, 0) != -1;
    return has;
}

key_serial_t freshRing() {
    if (kernelHasImaKeyring()) {
        const key_serial_t ring = realFind()("keyring", imaName, 0);
        demand(static_cast<key_serial_t>(keyctl_clear(ring)), "keyctl_clear");
        return ring;
    }
    if (plainRing != 0) {
        keyctl_clear(plainRing);
        keyctl_unlink(plainRing, KEY_SPEC_SESSION_KEYRING);
    }
    plainRing = madePlainRing("vestrel-bench");
    return plainRing;
}

void standInIs(key_serial_t ring) {
    if (!kernelHasImaKeyring()) {
        plainRing = ring;
    }
}

PlainRing::PlainRing()
    : serial_(madePlainRing("vestrel-bench-stand-in")),
      replaced_(std::exchange(plainRing, serial_)) {}

PlainRing::~PlainRing() {
    keyctl_unlink(serial_, KEY_SPEC_SESSION_KEYRING);
    plainRing = replaced_;
}

double microsecondsOfSearches() {
    return searches;
}

std::size_t keysIn(key_serial_t ring) {
    const long bytes = keyctl_read(ring, nullptr, 0);
    return bytes < 0 ? 0 : static_cast<std::size_t>(bytes) / sizeof(key_serial_t);
}

bool addBarely(const std::string& path, key_serial_t ring) {
    const Zell::OwnedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<char> bytes(4096);
    const ssize_t got = read(file.get(), bytes.data(), bytes.size());
    return got > 0 &&
           add_key("asymmetric", nullptr, bytes.data(), static_cast<std::size_t>(got), ring) != -1;
}

} // namespace Vestrel::Bench

// Answers for the library of the same function: its name for the ring leads to the plain one.
extern "C" VESTREL_EXPORT key_serial_t find_key_by_type_and_desc(const char* type, const char* desc,
                                                                 key_serial_t destringid) {
    using namespace Vestrel::Bench;
    if (plainRing != 0 && std::strcmp(desc, imaName) == 0) {
        return plainRing;
    }
    const ProcessorClock clock;
    const key_serial_t found = realFind()(type, desc, destringid);
    searches += clock.microseconds();
    return found;
}
