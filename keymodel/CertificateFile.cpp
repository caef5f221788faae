// SPDX-License-Identifier: Apache-2.0
// Bounded reading of certificate files, and the way from PEM to DER.
#include "keymodel/CertificateFile.h"

#include "keymodel/ErrorQueueGuard.h"
#include "platform/zell/OwnedFd.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>

namespace Vestrel {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t smallestRead = 4096;

struct BioDeleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
};

using Bio = std::unique_ptr<BIO, BioDeleter>;

struct OpensslDeleter {
    void operator()(void* memory) const { OPENSSL_free(memory); }
};

template <typename T>
using OpensslMemory = std::unique_ptr<T, OpensslDeleter>;

bool looksLikeDer(const Bytes& content) {
    return content.size() >= 2 && content[0] == 0x30 && (content[1] & 0x80U) != 0;
}

struct PemBlock {
    OpensslMemory<char> label;
    OpensslMemory<unsigned char> data;
    std::size_t size = 0;
};

// The next block that can be decoded; a damaged one is passed over. An empty label: no more.
PemBlock nextBlock(BIO* pem) {
    for (long left = BIO_pending(pem); left > 0;) {
        char* label = nullptr;
        char* header = nullptr;
        unsigned char* data = nullptr;
        long size = 0;
        if (PEM_read_bio(pem, &label, &header, &data, &size) == 1) {
            const OpensslMemory<char> unused(header);
            return {OpensslMemory<char>(label), OpensslMemory<unsigned char>(data),
                    static_cast<std::size_t>(size)};
        }
        if (std::exchange(left, BIO_pending(pem)) == left) {
            break; // nothing was read, so nothing would be the next time
        }
    }
    return {};
}

std::optional<Bytes> firstPemCertificate(const Bytes& content) {
    if (!std::in_range<int>(content.size())) {
        return std::nullopt;
    }
    const ErrorQueueGuard guard;
    const Bio pem(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    if (!pem) {
        return std::nullopt;
    }
    for (PemBlock block = nextBlock(pem.get()); block.label; block = nextBlock(pem.get())) {
        if (std::string_view(block.label.get()) == PEM_STRING_X509) {
            return Bytes(block.data.get(), block.data.get() + block.size);
        }
    }
    return std::nullopt;
}

// These operations return 0, or the number of the error.

int checkKind(const struct stat& status) {
    if (S_ISDIR(status.st_mode)) {
        return EISDIR;
    }
    if (!S_ISREG(status.st_mode)) {
        return EINVAL;
    }
    return status.st_size > static_cast<off_t>(maxCertificateFileSize) ? EFBIG : 0;
}

// Reads to the end, whatever size the file was said to have: it may change while it is read. A read
// that gives that very size and less than was asked for has met the end.
int readToEnd(int fd, std::size_t expected, Bytes& content) {
    content.resize(std::max(expected + 1, smallestRead));
    std::size_t used = 0;
    for (;;) {
        const ssize_t count = ::read(fd, content.data() + used, content.size() - used);
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        if (count < 0) {
            continue;
        }
        if (count == 0) {
            content.resize(used);
            return used == 0 ? EINVAL : 0;
        }
        used += static_cast<std::size_t>(count);
        if (used > maxCertificateFileSize) {
            return EFBIG;
        }
        if (used == expected && used < content.size()) {
            content.resize(used);
            return 0;
        }
        if (used == content.size()) {
            content.resize(std::min(2 * used, maxCertificateFileSize + 1));
        }
    }
}

int readRegularFile(const char* path, Bytes& content) {
    const Zell::OwnedFd fd(::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!fd) {
        return errno;
    }

    struct stat status {};

    if (::fstat(fd.get(), &status) != 0) {
        return errno;
    }
    if (const int error = checkKind(status); error != 0) {
        return error;
    }
    return readToEnd(fd.get(), static_cast<std::size_t>(status.st_size), content);
}

} // namespace

Bytes derOf(Bytes content) {
    if (looksLikeDer(content)) {
        return content;
    }
    if (std::optional<Bytes> certificate = firstPemCertificate(content)) {
        return *std::move(certificate);
    }
    return content;
}

std::optional<Bytes> readFileContent(const char* path) {
    Bytes content;
    if (const int error = readRegularFile(path, content); error != 0) {
        content = {};
        errno = error;
        return std::nullopt;
    }
    return content;
}

std::optional<Bytes> readCertificateFile(const char* path) {
    std::optional<Bytes> content = readFileContent(path);
    return content ? std::optional(derOf(*std::move(content))) : std::nullopt;
}

} // namespace Vestrel
