// SPDX-License-Identifier: Apache-2.0
// What the files of a scenario may hold, and what the kernel makes of each.
#pragma once

#include "tests/support/CertificateMaker.h"

#include <map>
#include <string>
#include <vector>

namespace Vestrel::Tests {

struct Content {
    std::string name;
    Bytes bytes;              // of the file
    Bytes payload;            // what of it is handed to the kernel
    std::string description;  // of its key, uncut; empty: not a readable certificate
    int refusal = 0;          // the errno with which a writable keyring refuses it; 0: it takes it
    bool isHandedOver = true; // false: the file is refused, with that errno, before the kernel
};

class Contents {
public:
    /// `trusted` is the authority in .builtin_trusted_keys, with the description of its key there.
    Contents(const CertificateAuthority& trusted, const CertificateAuthority& unknown,
             const std::string& trustedDescription);

    /// Throws std::out_of_range for a name that is none.
    const Content& at(const std::string& name) const { return contents_.at(name); }

    /// Null when no content is handed to the kernel like that.
    const Content* ofPayload(const Bytes& payload) const;

    /// Every name; the same ones in the same order for every authority.
    static const std::vector<std::string>& names();
    /// Those of which another process holds a key of its own, all of them taken by the kernel.
    static const std::vector<std::string>& heldNames();

private:
    void put(const std::string& name, const Bytes& bytes, const std::string& description,
             int refusal = 0);

    std::map<std::string, Content> contents_;
};

} // namespace Vestrel::Tests
