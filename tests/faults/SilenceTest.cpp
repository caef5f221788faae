// SPDX-License-Identifier: Apache-2.0
// Counts what the handlers ask of memory while their traces are off: no text is made that nobody
// reads. A text of up to fifteen bytes takes no memory of its own and is not seen.
#include "keymodel/IntegrityConstants.h"
#include "tests/faults/Allocations.h"
#include "tests/keyring/CertificateDirectories.h"
#include "tests/keyring/InotifyBytes.h"

#include <cerrno>

namespace Vestrel::Tests {

namespace {

// Too long for a std::string to hold without memory of its own.
constexpr const char* longName = "a file name that does not fit into a short text";
constexpr const char* longDescription = "a description that does not fit into a short text";

class Silence : public CertificateDirectories {
protected:
    Silence() {
        start();
        Zell::traceLevelIs(0);
    }

    void SetUp() override {
#if defined(VESTREL_CHECKS) || !defined(__OPTIMIZE__)
        GTEST_SKIP() << "the counts are those of an optimised build without checks";
#endif
    }

    // How often `work` asks for memory when it has been done before.
    template <class Prepare, class Work>
    static std::size_t asked(const Prepare& prepare, const Work& work) {
        prepare();
        work();
        prepare();
        const CountedAllocations counted;
        work();
        return CountedAllocations::count();
    }

    template <class Work>
    static std::size_t asked(const Work& work) {
        return asked([] {}, work);
    }

    std::size_t askedForEvent(std::uint32_t mask, const std::string& name) {
        const int descriptor = sm->watcherInfos(".ima").inotifyFd;
        return asked(
            [&] {
                calls.feedRead(descriptor, inotifyBytes({mask, 7, name}));
                calls.feedReadError(descriptor, EAGAIN);
            },
            [&] { sm->handleInotify(ima_); });
    }

    std::size_t askedForRecord(unsigned type, unsigned subtype, key_serial_t serial) {
        return asked(
            [&] {
                keys.post(".ima", notificationRecord(type, subtype, 1, 1,
                                                     static_cast<std::uint32_t>(serial)));
            },
            [&] { sm->handleKeyringWatch(ima_); });
    }

    // What is needed for an event: the directory, the file's path, and that as the text to look up.
    static std::size_t needed(const std::string& name, bool isLookedUp) {
        return asked([&] {
            const std::filesystem::path directory(
                IntegrityConstants().keyringPathPrefix(".ima").view());
            const std::filesystem::path path = directory / std::string_view(name);
            const Orvo::String text = isLookedUp ? Orvo::String(path.string()) : Orvo::String();
        });
    }

    const Orvo::String ima_{".ima"};
};

TEST_F(Silence, OfAnIdleDirectoryAsksForTheDirectoryOnly) {
    EXPECT_EQ(asked([&] { sm->handleInotify(ima_); }), 1U);
}

TEST_F(Silence, OfADirectoryEventAsksForTheFilesPathOnly) {
    const std::string temporary = std::string(longName) + ".integrity-tmp";
    EXPECT_EQ(askedForEvent(IN_CLOSE_WRITE, temporary), needed(temporary, false));
    for (const std::uint32_t mask : {0U + IN_CLOSE_WRITE, 0U + IN_DELETE, 0U + IN_MOVED_FROM}) {
        EXPECT_EQ(askedForEvent(mask, longName), needed(longName, true)) << mask;
    }
    EXPECT_GT(needed(longName, true), needed(longName, false)) << "the counting is on";
}

TEST_F(Silence, OfAnIdleQueueAsksForNothing) {
    EXPECT_EQ(asked([&] { sm->handleKeyringWatch(ima_); }), 0U);
}

TEST_F(Silence, OfANotificationAsksForNothing) {
    constexpr key_serial_t unknown = 987654;
    for (const unsigned type : {0U, 1U, 2U}) {
        for (const unsigned subtype : {0U, 1U, 2U, 3U, 4U, 7U, 8U}) {
            EXPECT_EQ(askedForRecord(type, subtype, unknown), 0U) << type << ' ' << subtype;
        }
    }
}

// The stream's copy of the kernel's text, and the field that the description is taken from.
TEST_F(Silence, OfALinkedKeyAsksForWhatReadsItsDescription) {
    const key_serial_t key = keys.addKey(".ima", longDescription);
    sm->handleKeyringWatch(ima_);
    EXPECT_EQ(asked([&] { sm->getKey(key, ima_); }), 2U);
    EXPECT_EQ(askedForRecord(1, 2, key), 2U);
}

} // namespace

} // namespace Vestrel::Tests
