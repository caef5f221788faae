// SPDX-License-Identifier: Apache-2.0
// Tests that the state machine works on a stack of 128 KiB, whatever the lines that it is sent.
#include "platform/zell/LogFacility.h"
#include "platform/zell/TraceHandle.h"
#include "tests/fuzz/AppraisalLines.h"
#include "tests/syslog/SyslogTest.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>

namespace Vestrel::Tests {

namespace {

constexpr std::size_t stackSize = std::size_t{128} << 10;

void* call(void* work) {
    (*static_cast<std::function<void()>*>(work))();
    return nullptr;
}

// Only that thread works until it is done.
void runOnSmallStack(std::function<void()> work) {
    pthread_attr_t attributes;
    pthread_t thread{};
    pthread_attr_init(&attributes);
    if (pthread_attr_setstacksize(&attributes, stackSize) != 0 ||
        pthread_create(&thread, &attributes, &call, &work) != 0) {
        std::fputs("no thread of that stack\n", stderr);
        std::abort();
    }
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

std::size_t stackSizeOfThisThread() {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    std::size_t size = 0;
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

class SmallStack : public SyslogTest {
protected:
    SmallStack() {
        GTEST_FLAG_SET(death_test_style, "fast"); // the child goes on with this very fixture
        Zell::LogFacility::defaultLimitIs({std::numeric_limits<unsigned>::max(), {}});
    }

    // In a process of its own: the status is 0 when every line was handled and raised what its kind
    // says.
    [[noreturn]] void handleEveryKind() {
        std::size_t wrong = 0;
        runOnSmallStack([&] {
            wrong += stackSizeOfThisThread() > stackSize ? 1U : 0U;
            start();
            for (const HostileKind& kind : hostileKinds()) {
                clear();
                send(kind.line(longestHostileLine));
                sm->handleLog();
                const bool isRight =
                    linesHandled() == 1 && messages.size() == (kind.matches ? 1U : 0U);
                wrong += isRight ? 0U : 1U;
                if (!isRight) {
                    std::fprintf(stderr, "%s: %zu messages\n", kind.name.c_str(), messages.size());
                }
            }
            stop();
        });
        std::exit(wrong == 0 ? 0 : 1);
    }
};

TEST_F(SmallStack, IsEnoughForTheLongestLinesOfEveryHostileKind) {
    EXPECT_EXIT(handleEveryKind(), testing::ExitedWithCode(0), "");
}

} // namespace

} // namespace Vestrel::Tests
