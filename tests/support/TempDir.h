// SPDX-License-Identifier: Apache-2.0
// A private directory for one test, with the file operations that tests make in it.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Vestrel::Tests {

/// Made empty (0700) at construction, removed with everything in it at destruction. Names are
/// relative to it. Operations abort the process when the system refuses them: a test whose ground
/// is not as it says proves nothing.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string path() const { return root_.string(); }

    std::string path(std::string_view name) const { return (root_ / name).string(); }

    bool has(std::string_view name) const;

    /// Creates or rewrites the file in one open, write and close; returns its path.
    std::string write(std::string_view name, std::string_view bytes) const;
    std::string read(std::string_view name) const;
    /// Replaces `to` when it exists; returns its path.
    std::string rename(std::string_view from, std::string_view to) const;
    void remove(std::string_view name) const;
    std::string makeDirectory(std::string_view name) const;
    std::string makeSymlink(std::string_view name, const std::string& target) const;
    std::string makeFifo(std::string_view name) const;

private:
    std::filesystem::path root_;
};

} // namespace Vestrel::Tests
