// SPDX-License-Identifier: Apache-2.0
// What the state machine's ways between a directory and a keyring cost, beside the least that can
// be done for the same result and beside the tools of the field.
#pragma once

#include "bench/Certificates.h"
#include "bench/Report.h"

#include <cstddef>
#include <vector>

namespace Vestrel::Bench {

// The directory that stands for the certificates of ".ima".
inline constexpr const char* imaDirectory = "/etc/keys/ima";

// Start-up with each of these numbers of certificates, against open, read and add_key of the same
// files.
void measureStartUps(Report& report, Certificates& certificates,
                     const std::vector<std::size_t>& counts, unsigned rounds);

// Start-up with `count` certificates against shell loops of keyctl and, where it is installed,
// evmctl, which load the first `toolFiles` of them: what a certificate costs either.
void measureTools(Report& report, Certificates& certificates, std::size_t count,
                  std::size_t toolFiles, unsigned rounds);

// One file renamed into the directory, with few and with many keys on record.
void measureChanges(Report& report, Certificates& certificates,
                    const std::vector<std::size_t>& counts, unsigned changeCount);

// From a rename to the key in the keyring, in a process of its own, against a bare wait for inotify
// and add_key.
void measureLatency(Report& report, Certificates& certificates, unsigned changeCount);

// Files renamed into the directory as fast as they can be, all of which are to be loaded.
void measureBurst(Report& report, Certificates& certificates, std::size_t count);

// Links and unlinks of a watched keyring against bare reads of its watch queue: the queue filled
// and drained in each round, then so many pairs without a pause. Reports nothing where the kernel
// has no key notifications.
void measureNotifications(Report& report, Certificates& certificates, unsigned rounds,
                          unsigned pairs);

// Wake-ups and processor time of a process that follows so many certificates while nothing happens.
void measureRest(Report& report, Certificates& certificates, std::size_t count);

// Resident memory of a process that follows so many certificates.
void measureMemory(Report& report, Certificates& certificates, std::size_t count);

} // namespace Vestrel::Bench
