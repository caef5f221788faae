// SPDX-License-Identifier: Apache-2.0
// Lets each allocation of the two factories fail: the exception leaves, and nothing stays behind.
#include "platform/brisklog/Brisklog.h"
#include "syslog/IntegritySyslogSm.h"
#include "tests/fakes/Aside.h"
#include "tests/faults/Allocations.h"
#include "tests/keyring/CertificateDirectories.h"

#include <malloc.h>

#include <filesystem>
#include <new>

namespace Vestrel::Tests {

namespace {

constexpr std::size_t moreThanEnough = 100000;

class Allocation : public CertificateDirectories,
                   public testing::WithParamInterface<std::tuple<Failing, int>> {
protected:
    Allocation() {
        Zell::traceLevelIs(std::get<int>(GetParam()));
        // No exception may leave the sinks, which stand for other libraries of the host.
        Zell::traceSinkIs(nullptr);
        Zell::LogFacility::sinkIs([](const Zell::LogMessage&) {});
        std::filesystem::create_directories("/run");
        loop = nullptr;
    }

    // What one run leaves behind in the process.
    struct Leftovers {
        std::map<int, std::string> descriptors = openDescriptors();
        std::map<std::string, std::size_t> entities = alive();

        bool operator==(const Leftovers&) const = default;
    };

    // Runs `create` with the failure at each allocation in its turn, until there are no more of
    // them. `create` returns what the factory gives; the failure is over before that goes.
    template <class Create, class Check>
    void strikeEach(const Create& create, const Check& check) {
        create(); // whatever is made once for the process
        check();
        const Leftovers before;
        std::size_t turn = 1;
        for (bool reached = true; reached; ++turn) {
            ASSERT_LT(turn, moreThanEnough);
            SCOPED_TRACE("allocation " + std::to_string(turn));
            reached = endsWell(create, turn);
            check();
            ASSERT_EQ(Leftovers(), before);
        }
        EXPECT_GT(failures_, 0U);
    }

private:
    // Whether there was such an allocation.
    template <class Create>
    bool endsWell(const Create& create, std::size_t turn) {
        using Made = decltype(create());
        Made made;
        bool hasThrown = false;
        {
            const FailingAllocation failure(turn, std::get<Failing>(GetParam()));
            try {
                made = create();
            } catch (const std::bad_alloc&) {
                hasThrown = true;
            }
        }
        EXPECT_EQ(hasThrown, FailingAllocation::hasStruck()) << "the exception left the factory";
        EXPECT_NE(hasThrown, static_cast<bool>(made));
        failures_ += hasThrown ? 1U : 0U;
        return FailingAllocation::isReached();
    }

    std::size_t failures_ = 0;
};

TEST_P(Allocation, ThatFailsLeavesTheKeyringFactoryAsAnExceptionWithNothingLeftBehind) {
    const key_serial_t present = keys.addKey(".ima", "a key that is there already");
    put("missing", "a certificate whose key is missing");
    put("present", "another", ".secondary_trusted_keys");
    keys.addKey(".secondary_trusted_keys", described("another"));
    strikeEach([&] { return integrityKeyringSmFactory(coll); },
               [&] {
                   coll->keyringDelAll();
                   EXPECT_EQ(keys.openQueues(), 0U);
                   EXPECT_EQ(coll->refCount(), 1U);
                   EXPECT_EQ(keys.keysOf(".ima").front(), present);
                   const auto loaded = keys.keysOf(".ima");
                   for (const key_serial_t key : loaded) {
                       if (key != present) {
                           keys.unlink(".ima", key); // so that the next run loads it again
                       }
                   }
                   keys.collectGarbage();
                   clear();
               });
}

TEST_P(Allocation, ThatFailsLeavesTheSyslogFactoryAsAnExceptionWithNothingLeftBehind) {
    strikeEach(
        [] { return integritySyslogSmFactory(); },
        [&] {
            EXPECT_FALSE(std::filesystem::exists(IntegritySyslogSm::socketPath));
            EXPECT_TRUE(!calls.callsOf({"bind"}).empty() || calls.callsOf({"unlink"}).empty())
                << "a file that another made is left alone";
            clear();
        });
}

class KernelText : public CertificateDirectories {
protected:
    KernelText() { start(); }

    // In bytes. None where a sanitizer gives them out, which itself tells what is not given back.
    static std::size_t memoryInUse() {
        Brisklog::eventsDelAll();
        const auto info = mallinfo2();
        return info.uordblks + info.hblkhd;
    }

    // Whether there was such an allocation.
    bool hasStruck(std::size_t turn, key_serial_t key) {
        clear();
        const FailingAllocation failure(turn, Failing::once);
        try {
            sm->getKey(key, ".ima");
        } catch (const std::bad_alloc&) {
            return true;
        }
        return false;
    }
};

TEST_F(KernelText, OfAKeyIsGivenBackWhicheverAllocationFails) {
    constexpr std::size_t size = 1U << 20U;
    const key_serial_t key = keys.addKey(".ima", std::string(size, 'd'));
    Zell::traceSinkIs(nullptr);
    sm->getKey(key, ".ima"); // whatever is made once for the process
    const std::size_t before = memoryInUse();
    std::size_t turn = 1;
    for (; hasStruck(turn, key); ++turn) {
        ASSERT_LT(turn, moreThanEnough);
        ASSERT_LT(memoryInUse(), before + size / 2) << "allocation " << turn;
    }
    EXPECT_GT(turn, 5U);
}

#if defined(__SANITIZE_ADDRESS__)
// Without the pool, memory is out in the destructor's own traces too, and an exception there ends
// the process, as it has to.
const auto plans =
    testing::Combine(testing::Values(Failing::once, Failing::fromThenOn), testing::Values(0, 1));
#else
const auto plans =
    testing::Combine(testing::Values(Failing::once, Failing::fromThenOn), testing::Values(0, 1, 5));
#endif

INSTANTIATE_TEST_SUITE_P(OnceAndForGood, Allocation, plans, [](const auto& each) {
    return std::string(std::get<Failing>(each.param) == Failing::once ? "Once" : "FromThenOn") +
           "AtTraceLevel" + std::to_string(std::get<int>(each.param));
});

} // namespace

} // namespace Vestrel::Tests
