// SPDX-License-Identifier: Apache-2.0
// Watches the end of the keyring state machine at the moments when it gives memory back.
#include "tests/faults/Allocations.h"
#include "tests/keyring/CertificateDirectories.h"

#include <cerrno>
#include <ostream>

namespace Vestrel::Tests {

namespace {

// Whether the loader is there, and what a readable descriptor would lead to.
struct Moment {
    bool hasLoader;
    bool directoryIsHandled;
    bool queueIsHandled;

    bool operator==(const Moment&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Moment& moment) {
    return out << "loader " << moment.hasLoader << ", directory " << moment.directoryIsHandled
               << ", queue " << moment.queueIsHandled;
}

class ReleaseOrder : public CertificateDirectories {
protected:
    // The moments of the shutdown, each only where it differs from the one before.
    std::vector<Moment> momentsOfTheEnd() {
        const auto directory = sm->inotifyDescriptors().value(".ima");
        const auto queue = sm->keyringWatchFileDescriptors().value(".ima");
        Zell::traceLevelIs(0); // a trace gives memory back in the midst of its own work
        std::vector<Moment> moments;
        const auto look = [&] {
            const auto entities = alive();
            if (!entities.contains(IntegrityKeyringSm::pelbinName)) {
                return;
            }
            const Moment moment{entities.contains(IntegrityKeyLoader::pelbinName),
                                isHandled(*directory), isHandled(*queue)};
            if (moments.empty() || !(moments.back() == moment)) {
                moments.push_back(moment);
            }
        };
        {
            const ReleaseWatch watch(look);
            stop();
        }
        return moments;
    }

private:
    // The handler reads first of all, and finds nothing.
    bool isHandled(Zell::FileDescriptor& descriptor) {
        calls.clear();
        calls.feedReadError(descriptor.descriptor(), EAGAIN);
        descriptor.publisher().publish(Zell::FileDescriptor::readableNotificationField,
                                       std::int64_t{0}, std::int64_t{1});
        return !calls.callsOf({"read"}).empty();
    }
};

TEST_F(ReleaseOrder, LetsReactorsRunUntilTheLoaderIsReleasedAndThenEndsTheirSubscriptions) {
    put("a", "so that the loader remembers a keyring, which it gives back");
    start();
    std::vector<Moment> expected{{true, true, true}, {false, false, false}};
#if defined(__SANITIZE_ADDRESS__)
    // Every block goes back by itself there, so that the moment between the two is seen.
    expected.insert(expected.begin() + 1, {false, true, true});
#endif
    EXPECT_EQ(momentsOfTheEnd(), expected);
}

} // namespace

} // namespace Vestrel::Tests
