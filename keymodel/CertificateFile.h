// SPDX-License-Identifier: Apache-2.0
// Reads certificate files into what is handed to the kernel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Vestrel {

// The largest payload that the kernel takes for a key.
inline constexpr std::size_t maxCertificateFileSize = std::size_t{1024} * 1024 - 1;

// The bytes to hand to the kernel for a file with this content: of PEM the first CERTIFICATE block
// that can be decoded, whatever stands around it. Anything else is returned as it is, for the
// kernel to give its verdict.
std::vector<std::uint8_t> derOf(std::vector<std::uint8_t> content);

// Reads the regular file at `path`, following symbolic links. Never blocks on what is not a regular
// file, even when it is swapped in at the last moment.
//
// On failure empty, with the cause in errno: that of open(2), fstat(2) or read(2), or EISDIR for a
// directory, EINVAL for an empty file or another kind of file, EFBIG for more than
// maxCertificateFileSize bytes. Throws only when memory runs out.
std::optional<std::vector<std::uint8_t>> readFileContent(const char* path);

// The derOf() of what readFileContent() returns, which fails like it.
std::optional<std::vector<std::uint8_t>> readCertificateFile(const char* path);

} // namespace Vestrel
