// SPDX-License-Identifier: Apache-2.0
// Token buckets with back-off.
#include "platform/zell/RateLimiter.h"

#include <algorithm>
#include <utility>

namespace Zell {

namespace {

using Seconds = std::chrono::duration<double>;

// A back-off never stretches an interval beyond this.
constexpr Seconds longestInterval = std::chrono::hours(1);

// Longer ones are as good as this, which times can be moved by.
constexpr Seconds forever = std::chrono::years(100);

Seconds intervalOf(const BucketRule& rule) {
    return std::min(forever, Seconds(rule.limit.interval.nanoseconds()));
}

} // namespace

RateLimiter::Time RateLimiter::Bucket::due() const noexcept {
    return lastRefusal + std::chrono::duration_cast<Time::duration>(interval);
}

RateLimiter::Bucket* RateLimiter::fartherBucketIfAny(unsigned hash) noexcept {
    const auto found = index_.find(hash);
    if (found == index_.end()) {
        return nullptr;
    }
    buckets_.splice(buckets_.begin(), buckets_, found->second);
    return &buckets_.front();
}

RateLimiter::Bucket& RateLimiter::newBucket(unsigned hash, const BucketRule& rule, Time now) {
    if (buckets_.size() == LogFacility::maxBuckets) {
        const Bucket& oldest = buckets_.back();
        if (oldest.suppressed != 0) {
            evicted_ = Report{oldest.descriptor, oldest.suppressed};
        }
        index_.erase(oldest.hash);
        buckets_.pop_back();
    }
    buckets_.push_front({hash, rule.descriptor, static_cast<double>(rule.limit.burst),
                         intervalOf(rule), now, now, 0, false});
    try {
        index_.emplace(hash, buckets_.begin());
    } catch (...) { // memory is out: a bucket that is not found again would be one too many
        buckets_.pop_front();
        throw;
    }
    return buckets_.front();
}

void RateLimiter::refill(Bucket& bucket, const BucketRule& rule, Time now) noexcept {
    const double burst = rule.limit.burst;
    if (now - bucket.lastRefusal >= bucket.interval) {
        bucket.interval = intervalOf(rule);
    }
    if (bucket.interval.count() <= 0) {
        bucket.tokens = burst;
    } else if (now != bucket.refilled) {
        const Seconds elapsed = now - bucket.refilled;
        bucket.tokens += burst * (elapsed / bucket.interval);
    }
    bucket.tokens = std::min(burst, bucket.tokens);
    bucket.refilled = now;
}

bool RateLimiter::allowed(unsigned hash, const BucketRule& rule, Time now) {
    Bucket* const found = bucketIfAny(hash);
    Bucket& mine = found != nullptr ? *found : newBucket(hash, rule, now);
    refill(mine, rule, now);
    if (mine.tokens >= 1.0) {
        mine.tokens -= 1.0;
        mine.refusing = false;
        return true;
    }
    if (!mine.refusing && rule.backoff > 1.0) {
        mine.interval =
            std::min(std::max(longestInterval, intervalOf(rule)), mine.interval * rule.backoff);
    }
    mine.refusing = true;
    mine.lastRefusal = now;
    ++mine.suppressed;
    return false;
}

std::vector<RateLimiter::Report> RateLimiter::takeDue(Time now, bool all) {
    std::vector<Report> reports;
    for (Bucket& each : buckets_) {
        if (each.suppressed != 0 && (all || now >= each.due())) {
            reports.push_back({each.descriptor, std::exchange(each.suppressed, 0U)});
        }
    }
    return reports;
}

std::optional<RateLimiter::Time> RateLimiter::nextDue() const noexcept {
    std::optional<Time> next;
    for (const Bucket& each : buckets_) {
        if (each.suppressed != 0 && (!next || each.due() < *next)) {
            next = each.due();
        }
    }
    return next;
}

} // namespace Zell
