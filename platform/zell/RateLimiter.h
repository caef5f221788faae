// SPDX-License-Identifier: Apache-2.0
// A table of token buckets that count what they refuse. Private to the log facility.
#pragma once

#include "platform/zell/LogFacility.h"

#include <chrono>
#include <cstdint>
#include <list>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Zell {

// What one kind of message is allowed.
struct BucketRule {
    const LogDescriptor* descriptor = nullptr;
    LogLimit limit;
    double backoff = 1.0;
};

class RateLimiter {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Report {
        const LogDescriptor* descriptor;
        std::uint64_t suppressed;
    };

    // Takes a token if there is one; otherwise counts a refusal.
    bool allowed(unsigned hash, const BucketRule& rule, Time now);

    // Takes the count of refusals of one kind, leaving none.
    std::uint64_t takeSuppressed(unsigned hash) noexcept {
        Bucket* const found = bucketIfAny(hash);
        return found == nullptr ? 0 : std::exchange(found->suppressed, 0U);
    }

    // Takes the counts that are due: of kinds not refused for an interval, or of all kinds.
    std::vector<Report> takeDue(Time now, bool all);

    // Takes the count of the kind that had to make room, if it had refused messages.
    std::optional<Report> takeEvicted() noexcept {
        return evicted_ ? std::exchange(evicted_, std::nullopt) : std::nullopt;
    }

    // When the next count falls due, or nothing.
    std::optional<Time> nextDue() const noexcept;

private:
    struct Bucket {
        unsigned hash;
        const LogDescriptor* descriptor;
        double tokens;
        std::chrono::duration<double> interval; // grows by the rule's back-off
        Time refilled;
        Time lastRefusal;
        std::uint64_t suppressed;
        bool refusing;

        Time due() const noexcept;
    };

    // Moves it to the front; null when there is none.
    Bucket* bucketIfAny(unsigned hash) noexcept {
        return !buckets_.empty() && buckets_.front().hash == hash ? &buckets_.front()
                                                                  : fartherBucketIfAny(hash);
    }

    Bucket* fartherBucketIfAny(unsigned hash) noexcept;
    Bucket& newBucket(unsigned hash, const BucketRule& rule, Time now);
    static void refill(Bucket& bucket, const BucketRule& rule, Time now) noexcept;

    std::list<Bucket> buckets_; // most recently used first
    std::unordered_map<unsigned, std::list<Bucket>::iterator> index_;
    std::optional<Report> evicted_;
};

} // namespace Zell
