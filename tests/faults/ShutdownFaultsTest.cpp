// SPDX-License-Identifier: Apache-2.0
// Lets each close of the shutdown fail alone: what is traced, and that every descriptor is closed.
#include "tests/faults/FaultWorld.h"

#include <cerrno>

namespace Vestrel::Tests {

namespace {

struct Close {
    int descriptor;
    const char* what; // as it is traced, or nullptr
};

class ShutdownFault : public FaultWorld {
protected:
    // Those of the records, in the order in which they are to be closed.
    std::vector<Close> closes() const {
        std::vector<Close> all;
        for (auto info = sm->watcherInfos().iterator(); info; ++info) {
            all.push_back({info->readFd, "readFd"});
            all.push_back({info->writeFd, "writeFd"});
            all.push_back({info->inotifyFd, nullptr});
        }
        return all;
    }
};

TEST_F(ShutdownFault, OfOneCloseIsTracedForTheQueueOnlyAndTheOthersFollow) {
    std::vector<int> errors = severalErrors();
    errors.insert(errors.end(), {EINTR, EBADF});
    const std::size_t count = 3 * keyringNames().size();
    for (std::size_t turn = 1; turn <= count; ++turn) {
        for (const int error : errors) {
            SCOPED_TRACE("close " + std::to_string(turn) + ", " + std::strerror(error));
            startAnew();
            loop = Zell::ActivityFacility::activityManager(); // its own closes come later
            const std::vector<Close> expected = closes();
            ASSERT_EQ(expected.size(), count);
            clear();
            calls.failNth("close", turn, error);
            stop();
            Texts made;
            for (const Close& each : expected) {
                made.push_back("close " + std::to_string(each.descriptor));
            }
            EXPECT_EQ(calls.callsOf({"close"}), made) << "once each, whatever it returned";
            const Close& struck = expected[turn - 1];
            EXPECT_EQ(traces(1),
                      struck.what == nullptr
                          ? TraceLines{}
                          : TraceLines{"1 closeAllFd: close " + std::string(struck.what) + ": " +
                                       std::to_string(struck.descriptor) + ", " +
                                       std::strerror(error)});
            EXPECT_EQ(messages, Texts{});
            endWithNothingLeft();
        }
    }
}

} // namespace

} // namespace Vestrel::Tests
