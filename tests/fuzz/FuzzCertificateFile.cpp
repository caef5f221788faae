// SPDX-License-Identifier: Apache-2.0
// Certificate files of any content, through the reader of the loader. One that begins with '=' or
// '>' is followed by as many zeros as make it as large as a file may be, or a byte larger.
#include "keymodel/CertificateFile.h"
#include "tests/fuzz/Fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

using Vestrel::Tests::require;

namespace {

using Content = std::vector<std::uint8_t>;

Content contentOf(const std::uint8_t* data, std::size_t size) {
    Content content(data, data + size);
    if (size != 0 && (data[0] == '=' || data[0] == '>')) {
        content.resize(Vestrel::maxCertificateFileSize + (data[0] == '>' ? 1U : 0U));
    }
    return content;
}

// A file without a name, with this content, that is opened by path.
std::string pathOf(int file, const Content& content) {
    require(ftruncate(file, 0) == 0, "the file can be emptied");
    require(pwrite(file, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()),
            "the file can be written");
    return "/proc/self/fd/" + std::to_string(file);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int file = memfd_create("certificate", MFD_CLOEXEC);
    const Content content = contentOf(data, size);
    errno = 0;
    const auto read = Vestrel::readCertificateFile(pathOf(file, content).c_str());
    if (!read) {
        require(content.empty()
                    ? errno == EINVAL
                    : content.size() > Vestrel::maxCertificateFileSize && errno == EFBIG,
                "only an empty file and a very large one cannot be read");
        return 0;
    }
    require(*read == Vestrel::derOf(content), "a file is read as its content is");
    require(read->size() <= content.size(), "nothing grows");
    const bool isAsItWas = *read == content;
    const bool hasPem =
        Vestrel::Tests::textOf(content.data(), content.size()).find("-----BEGIN ") !=
        std::string::npos;
    require(isAsItWas || hasPem, "only PEM is changed");
    return 0;
}
