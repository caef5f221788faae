// SPDX-License-Identifier: Apache-2.0
// Bytes that may be a certificate, to the description of its key.
#include "keymodel/CertificateDescription.h"
#include "tests/fuzz/Fuzz.h"

#include <string>
#include <vector>

using Vestrel::Tests::require;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string description = Vestrel::certificateDescription({data, size});
    require(description.find('\0') == std::string::npos, "a description has no NUL");
    require(description.size() <= 3 * size, "a description has no more than its certificate");
    if (description.empty()) {
        return 0;
    }
    // What stands behind a certificate does not matter.
    std::vector<std::uint8_t> longer(data, data + size);
    longer.push_back(0x30);
    require(Vestrel::certificateDescription(longer) == description,
            "bytes behind the certificate change nothing");
    const std::size_t colon = description.rfind(':');
    require(colon != std::string::npos &&
                description.find_first_not_of("0123456789abcdef", colon + 2) == std::string::npos,
            "a description ends in a colon, a blank and hexadecimal digits");
    return 0;
}
