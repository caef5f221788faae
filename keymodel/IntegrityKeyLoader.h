// SPDX-License-Identifier: Apache-2.0
// Loads certificate files into kernel keyrings and tells which description their keys will carry.
#pragma once

#include "platform/Export.h"
#include "platform/orvo/Node.h"
#include "platform/orvo/String.h"
#include "platform/pelbin/Pelbin.h"

#include <keyutils.h>

#include <map>
#include <optional>

namespace Vestrel {

class VESTREL_EXPORT IntegrityKeyLoader final : public Orvo::Node,
                                                public Pelbin::Tracked<IntegrityKeyLoader> {
public:
    static constexpr const char* pelbinName = "Vestrel::IntegrityKeyLoader";

    // Adds the certificate of a file (DER or PEM, less than 1 MiB, a regular file) to the kernel
    // keyring of that name and returns the serial of its key. On failure returns -1 with errno set
    // to the cause: that of reading the file (EFBIG when it is too large), of finding the keyring,
    // or the kernel's verdict on the certificate (see add_key(2)). Never blocks on a FIFO.
    key_serial_t loadKey(const Orvo::String& file, const Orvo::String& keyringName) const;

    // The description that the kernel will give to the key of this file, worked out from the file
    // alone; empty for what is not a readable certificate.
    Orvo::String getCertDescription(const Orvo::String& file) const;

private:
    std::optional<key_serial_t> keyring(const Orvo::String& name) const;
    bool stale(key_serial_t serial, const Orvo::String& name) const;

    // The serials of the keyrings found so far, so that not every file costs a look-up.
    mutable std::map<Orvo::String, key_serial_t> keyrings_;
};

} // namespace Vestrel
