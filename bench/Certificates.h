// SPDX-License-Identifier: Apache-2.0
// Any number of certificate files, no two with the same description.
#pragma once

#include "tests/support/CertificateMaker.h"

#include <string>
#include <vector>

namespace Vestrel::Bench {

class Certificates {
public:
    explicit Certificates(Tests::CertificateAuthority authority)
        : authority_(std::move(authority)) {}

    // Makes those that are not there yet; the first `count` stay the same ones.
    const std::vector<Tests::Bytes>& first(std::size_t count);

    // Writes the first `count`, in DER, into a directory that is emptied before.
    void write(const std::string& directory, std::size_t count);

private:
    Tests::CertificateAuthority authority_;
    std::vector<Tests::Bytes> made_;
};

// "NUMBER.der" in the directory.
std::string certificatePath(const std::string& directory, std::size_t number);

void writeFile(const std::string& path, const Tests::Bytes& bytes);

} // namespace Vestrel::Bench
