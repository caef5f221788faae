// SPDX-License-Identifier: Apache-2.0
// The keyrings that are measured: the kernel's integrity keyrings where it has them, or else plain
// ones in their place.
#pragma once

#include <keyutils.h>

#include <string>

namespace Vestrel::Bench {

// Whether this kernel has ".ima"; then keys are signed by an authority that it trusts.
bool kernelHasImaKeyring();

// The keyring that stands for ".ima" from now on: the kernel's, emptied, or a fresh plain one. The
// others that a state machine looks for are not there on a kernel without them.
key_serial_t freshRing();

// Has that keyring stand for ".ima", where the kernel has none.
void standInIs(key_serial_t ring);

// A plain keyring that stands for ".ima" as long as it lives, also where the kernel has one.
class PlainRing {
public:
    PlainRing();
    PlainRing(const PlainRing&) = delete;
    PlainRing& operator=(const PlainRing&) = delete;
    ~PlainRing();

    key_serial_t serial() const { return serial_; }

private:
    key_serial_t serial_;
    key_serial_t replaced_;
};

// What this thread spent so far on having the kernel list all keys, to find a keyring by its name.
double microsecondsOfSearches();

std::size_t keysIn(key_serial_t ring);

// Adds a certificate file as a loop without any bookkeeping does; false with errno when refused.
bool addBarely(const std::string& path, key_serial_t ring);

} // namespace Vestrel::Bench
