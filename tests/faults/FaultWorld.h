// SPDX-License-Identifier: Apache-2.0
// What the fault tests share: a populated kernel with directories, and a picture of everything that
// the state machine has made of them.
#pragma once

#include "tests/keyring/CertificateDirectories.h"

#include <cerrno>
#include <cstring>
#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Vestrel::Tests {

using Texts = std::vector<std::string>;

// Of one keyring; numbers that differ from run to run are not part of it.
struct KeyringPicture {
    bool isRecorded = false;
    bool hasInotify = false;
    bool hasQueue = false;
    int watchId = 0;
    bool isDirectoryFollowed = false;
    bool isQueueFollowed = false;
    std::vector<int> kernelWatches;
    std::multiset<std::string> known;         // descriptions of the keys on record
    std::map<std::string, std::string> files; // path to description
    std::multiset<std::string> inKernel;

    bool operator==(const KeyringPicture&) const = default;
};

std::ostream& operator<<(std::ostream& out, const KeyringPicture& picture);

using Picture = std::map<std::string, KeyringPicture>;

// .ima and .secondary_trusted_keys have two certificates each, of which one's key is missing;
// .builtin_trusted_keys and .machine have one, whose key is there. Each has a key without a file.
class FaultWorld : public CertificateDirectories {
protected:
    FaultWorld();

    static const Texts& keyringNames();
    static bool isWritable(const std::string& keyring);

    static std::string present(const std::string& keyring) { return keyring + " present"; }

    static std::string missing(const std::string& keyring) { return keyring + " missing"; }

    static std::string fileless(const std::string& keyring) { return keyring + " fileless"; }

    // The kernel and the directories as they are before a start.
    void populate();
    // populate(), then a start whose traces and calls are kept.
    void startAnew();
    Picture picture() const;

    // Ends the state machine and expects that nothing is left of it.
    void endWithNothingLeft();

    // The 1-based turn of the n-th recorded call that begins with `call` among those of its name.
    static std::vector<std::size_t> turnsOf(const Texts& calls, const std::string& call);

    static std::string failure(const std::string& path, const std::string& keyring, int error);

private:
    std::map<int, std::string> descriptors_;
    std::map<std::string, std::size_t> entities_;
};

// What failed calls leave in errno, whatever the manual says of each.
inline const std::vector<int>& severalErrors() {
    static const std::vector<int> errors{EACCES, EMFILE, ENOMEM, EINVAL, ENOKEY, EIO};
    return errors;
}

// The same of a read. The handlers take none of these for a reason to try again.
inline const std::vector<int>& severalReadErrors() {
    static const std::vector<int> errors{EINTR, ENOBUFS, EBADF, EIO};
    return errors;
}

} // namespace Vestrel::Tests
