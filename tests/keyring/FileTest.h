// SPDX-License-Identifier: Apache-2.0
// What the tests of certificate files share: files that are loaded, and the lines and calls that
// loading and unlinking leave behind.
#pragma once

#include "tests/support/StateMachineTest.h"

#include <filesystem>
#include <iostream>

namespace Vestrel::Tests {

class FileTest : public StateMachineTest {
protected:
    FileTest() { start(); }

    ~FileTest() override {
        EXPECT_EQ(calls.pending(), 0U);
        EXPECT_EQ(keys.pendingFailures(), 0U);
    }

    // Writes the file in the directory of .ima, loads it and takes the notification. Leaves no
    // traces and no recorded calls; the directory's own events stay unread.
    key_serial_t load(const std::string& name, const std::string& content) {
        write(file(name), content);
        const key_serial_t serial = sm->loadFile(".ima", file(name));
        sm->handleKeyringWatch(".ima");
        clear();
        return serial;
    }

    key_serial_t ring() const { return keys.serialOf(".ima"); }

    // Serial of the newest key of .ima, 0 when there is none.
    key_serial_t newest() const {
        const std::vector<key_serial_t> members = keys.keysOf(".ima");
        return members.empty() ? 0 : members.back();
    }

    static std::string text(key_serial_t serial) { return std::to_string(serial); }

    static std::string keyText(const std::string& description) {
        return "asymmetric;0;0;39010000;" + description;
    }

    static TraceLines described(key_serial_t serial, const std::string& description) {
        return {"5 getKey: " + text(serial) + ", .ima",
                "5 getKey: keyctl_describe_alloc: " + keyText(description)};
    }

    static TraceLines loaded(const std::string& path, key_serial_t serial,
                             const std::string& description) {
        return joined(
            {{"5 loadFile: .ima, " + path, "5 loadFile: Mapping " + text(serial) + " to " + path},
             described(serial, description)});
    }

    // Unmapping the last file of a description whose key is on record.
    static TraceLines unmapped(const std::string& path, const std::string& description,
                               key_serial_t serial) {
        return {"5 unmapFileToDescription: .ima, " + path + " <-> " + description,
                "5 unmapFileToDescription: Removing the key matching the old file content",
                "5 unlinkKey: " + text(serial) + ", .ima",
                "5 unlinkKey: Unlinking " + text(serial)};
    }

    static TraceLines removed(const std::string& path, const std::string& description,
                              key_serial_t serial) {
        return joined({{"5 removeFile: .ima, " + path}, unmapped(path, description, serial)});
    }

    static TraceLines joined(const std::vector<TraceLines>& parts) {
        TraceLines all;
        for (const TraceLines& part : parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }

    static std::string failure(const std::string& path, const std::string& cause) {
        return "VESTREL_INTEGRITY_LOAD_KEY_FAIL: Failed to load certificate " + path +
               " in keyring (.ima). " + cause + ".";
    }

    // Has the traces written to the standard error, where a death test reads them.
    void tracesToStandardError() {
        onTrace = [](const std::string& line) { std::cerr << line << '\n'; };
    }

    // The end of a process that traces there: the assertion's own trace and its line come right
    // behind this trace.
    static std::string deathBehind(const std::string& trace, const std::string& operation,
                                   const std::string& expression) {
        const std::string assertion =
            "IntegrityKeyringSm:[0-9]+: " + operation + ": assertion failed: " + expression + "\n";
        return trace + "\n0 " + operation + ": " + assertion + assertion;
    }

    std::vector<std::string> filesOf(const std::string& description) const {
        std::vector<std::string> paths;
        if (const auto files = keyColl()->descriptionToFile(description)) {
            for (const Orvo::String& path : files->filePath()) {
                paths.emplace_back(path.view());
            }
        }
        return paths;
    }

    std::vector<key_serial_t> recorded() const {
        std::vector<key_serial_t> serials;
        for (auto key = keyColl()->key().iterator(); key; ++key) {
            serials.push_back(key->serial);
        }
        return serials;
    }

    std::size_t mappedFiles() const { return keyColl()->fileToDescription().size(); }

    using Texts = std::vector<std::string>;
    using Serials = std::vector<key_serial_t>;
};

} // namespace Vestrel::Tests
