// SPDX-License-Identifier: Apache-2.0
// What the tests of directory events share: events that are fed to the descriptor of .ima, and the
// file operations that they lead to.
#pragma once

#include "tests/keyring/FileTest.h"
#include "tests/keyring/InotifyBytes.h"

#include <algorithm>
#include <cerrno>

namespace Vestrel::Tests {

class DirectoryTest : public FileTest {
protected:
    DirectoryTest() {
        EXPECT_GT(inotifyFd(), 0)
            << "this host gives no further inotify instance: see fs.inotify.max_user_instances";
    }

    int inotifyFd() const { return sm->watcherInfos(".ima").inotifyFd; }

    // The records come in one read.
    void feed(const std::vector<InotifyRecord>& records) {
        std::string bytes;
        for (const InotifyRecord& record : records) {
            bytes += inotifyBytes(record);
        }
        calls.feedRead(inotifyFd(), bytes);
    }

    // Handles what was fed, and nothing of what really happened in the directory.
    void drain() {
        calls.feedReadError(inotifyFd(), EAGAIN);
        sm->handleInotify(".ima");
    }

    void handle(const std::vector<InotifyRecord>& records) {
        feed(records);
        drain();
    }

    std::string reading() const {
        return "5 handleInotify: readFd: " + text(inotifyFd()) + ", size: 4096";
    }

    std::ptrdiff_t readings() const { return std::ranges::count(traces(), reading()); }

    // The lines between the first reading and the last one of a call that read once.
    TraceLines lines() const {
        TraceLines all = traces();
        EXPECT_GE(all.size(), 4U);
        EXPECT_EQ(all.at(1), reading());
        EXPECT_EQ(all.at(all.size() - 2), reading());
        EXPECT_EQ(all.back(), "5 handleInotify: No more to read");
        return {all.begin() + 2, all.end() - 2};
    }

    // What is traced of a record's reading, up to the monitored flag.
    static TraceLines received(const InotifyRecord& record, bool monitored) {
        return {"5 handleInotify: Read " +
                    std::to_string(sizeof(inotify_event) + paddedLength(record.name)) + " bytes",
                "5 handleInotify: Received notification for watch 1 with mask " +
                    std::to_string(record.mask) + ", cookie " + std::to_string(record.cookie) +
                    ", name (size " + std::to_string(paddedLength(record.name)) + ") " +
                    record.name,
                path(record.name) + " was monitored: " + (monitored ? "1" : "0")};
    }

    static std::string path(const std::string& name) {
        return "5 handleInotify: \"/etc/keys/ima/" + name + "\"";
    }

    // The file operations so far that the events led to, each as its name and the file's. The load
    // inside of a reload is part of it.
    Texts fileOperations() const {
        Texts operations;
        for (const std::string& line : traces()) {
            const std::string middle = ": .ima, " + directory() + "/";
            const std::size_t end = line.find(middle);
            if (end == std::string::npos || line.find(" <-> ") != std::string::npos) {
                continue;
            }
            const std::string operation = line.substr(2, end - 2);
            const std::string name = line.substr(end + middle.size());
            const bool insideReload = operation == "loadFile" && !operations.empty() &&
                                      operations.back() == "modifyFile " + name;
            if (!insideReload) {
                operations.push_back(operation + " " + name);
            }
        }
        return operations;
    }
};

} // namespace Vestrel::Tests
