// SPDX-License-Identifier: Apache-2.0
// Lets each allocation of the keyring handlers fail while an event waits: the exception leaves, and
// what is read afterwards is handled. The handler of the end has nowhere to let it go.
#include "tests/faults/Allocations.h"
#include "tests/keyring/FileTest.h"
#include "tests/keyring/InotifyBytes.h"

#include <cerrno>
#include <new>
#include <optional>
#include <type_traits>

namespace Vestrel::Tests {

namespace {

constexpr std::size_t moreThanEnough = 100000;

class HandlerAllocation : public FileTest {
protected:
    HandlerAllocation() {
        write(file("a"), "one");
        write(file("b"), "two");
        // No exception may leave the sinks, which stand for other libraries of the host.
        Zell::traceSinkIs(nullptr);
        Zell::LogFacility::sinkIs([](const Zell::LogMessage&) {});
    }

    // A keyring and its records as at the start.
    void forgetEverything() {
        keys.clear(".ima");
        keys.collectGarbage();
        sm->handleKeyringWatch(".ima");
        coll->keyringDelAll();
        coll->keyringIs(".ima");
        clear();
    }

    void prepareFiles() {
        const int inotify = sm->watcherInfos(".ima").inotifyFd;
        calls.feedRead(inotify, inotifyBytes({IN_CLOSE_WRITE, 0, "a"}));
        calls.feedRead(inotify, inotifyBytes({IN_MOVED_TO, 0, "b"}));
        calls.feedReadError(inotify, EAGAIN);
    }

    // Prepares and handles, with the failure at each allocation in its turn, until there are no
    // more of them; then handles what an exception has left.
    template <class Prepare, class Handle>
    void strikeEach(const Prepare& prepare, const Handle& handle) {
        std::size_t turn = 1;
        for (bool reached = true; reached; ++turn) {
            ASSERT_LT(turn, moreThanEnough);
            forgetEverything();
            prepare();
            const bool thrown = throws(turn, handle);
            ASSERT_EQ(thrown, FailingAllocation::hasStruck()) << "allocation " << turn;
            reached = FailingAllocation::isReached();
            while (calls.pending() != 0) {
                handle();
            }
        }
        EXPECT_GT(turn, 5U) << "some failed";
    }

private:
    template <class Handle>
    static bool throws(std::size_t turn, const Handle& handle) {
        const FailingAllocation failure(turn, Failing::once);
        try {
            handle();
        } catch (const std::bad_alloc&) {
            return true;
        }
        return false;
    }
};

// Without the traces: the standard library's inserter of a path keeps an exception to itself.
TEST_F(HandlerAllocation, ThatFailsLeavesTheHandlerOfTheDirectory) {
    Zell::traceLevelIs(1);
    strikeEach([&] { prepareFiles(); }, [&] { sm->handleInotify(".ima"); });
    EXPECT_EQ(mappedFiles(), 2U) << "without a failure";
}

TEST_F(HandlerAllocation, ThatFailsLeavesTheHandlerOfTheKeyring) {
    strikeEach([&] { keys.addKey(".ima", "one"); }, [&] { sm->handleKeyringWatch(".ima"); });
    EXPECT_EQ(recorded(), keys.keysOf(".ima")) << "without a failure";
}

using ShutdownDeathTest = FileTest;

TEST_F(ShutdownDeathTest, AnExceptionInTheDestructorEndsTheProcess) {
    static_assert(std::is_nothrow_destructible_v<IntegrityKeyringSm>);
    std::optional<FailingAllocation> failure;
    onTrace = [&](const std::string& line) {
        if (line == "5 handleDelete: ") {
            failure.emplace(1, Failing::once); // which is the ring's, behind this line
        }
    };
    EXPECT_DEATH(stop(), "std::bad_alloc");
    onTrace = nullptr;
}

} // namespace

} // namespace Vestrel::Tests
