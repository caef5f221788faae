// SPDX-License-Identifier: Apache-2.0
// Makes, fills and removes a test's private directory.
#include "tests/support/TempDir.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <system_error>

namespace Vestrel::Tests {

namespace {

namespace fs = std::filesystem;

void require(bool isDone, const char* operation, const fs::path& path) {
    if (!isDone) {
        std::fprintf(stderr, "TempDir: %s %s: %s\n", operation, path.c_str(), std::strerror(errno));
        std::abort();
    }
}

void require(const std::error_code& error, const char* operation, const fs::path& path) {
    errno = error.value();
    require(!error, operation, path);
}

} // namespace

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "vestrel-test-XXXXXX").string();
    require(::mkdtemp(pattern.data()) != nullptr, "make", pattern);
    root_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored; // a leftover in the system's temporary directory is no test's failure
    fs::remove_all(root_, ignored);
}

bool TempDir::has(std::string_view name) const {
    std::error_code error;
    return fs::exists(fs::symlink_status(root_ / name, error));
}

std::string TempDir::write(std::string_view name, std::string_view bytes) const {
    std::ofstream file(root_ / name, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    require(!file.fail(), "write", root_ / name);
    return path(name);
}

std::string TempDir::read(std::string_view name) const {
    // Not a C++ stream: those call `read` through the dynamic linker, where a test may have hooked
    // it.
    std::FILE* file = std::fopen((root_ / name).c_str(), "re");
    require(file != nullptr, "read", root_ / name);
    std::string bytes;
    for (int next = std::fgetc(file); next != EOF; next = std::fgetc(file)) {
        bytes.push_back(static_cast<char>(next));
    }
    require(std::ferror(file) == 0, "read", root_ / name);
    std::fclose(file);
    return bytes;
}

std::string TempDir::rename(std::string_view from, std::string_view to) const {
    std::error_code error;
    fs::rename(root_ / from, root_ / to, error);
    require(error, "rename", root_ / from);
    return path(to);
}

void TempDir::remove(std::string_view name) const {
    std::error_code error;
    const bool isRemoved = fs::remove(root_ / name, error);
    require(error, "remove", root_ / name);
    errno = ENOENT;
    require(isRemoved, "remove", root_ / name);
}

std::string TempDir::makeDirectory(std::string_view name) const {
    require(::mkdir((root_ / name).c_str(), 0755) == 0, "make directory", root_ / name);
    return path(name);
}

std::string TempDir::makeSymlink(std::string_view name, const std::string& target) const {
    std::error_code error;
    fs::create_symlink(target, root_ / name, error);
    require(error, "make symbolic link", root_ / name);
    return path(name);
}

std::string TempDir::makeFifo(std::string_view name) const {
    require(::mkfifo((root_ / name).c_str(), 0600) == 0, "make FIFO", root_ / name);
    return path(name);
}

} // namespace Vestrel::Tests
