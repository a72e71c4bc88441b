#include "tools/replay/Distribution.h"

#include <algorithm>
#include <cmath>

namespace com_tesk::replay {

namespace {

constexpr std::int64_t kPerPower = 32;  ///< Buckets for each power of two.
constexpr std::int64_t kExact = 2 * kPerPower;

std::int32_t bucketOf(std::int64_t duration) {
    std::int64_t mantissa = std::abs(duration);
    std::int64_t power = 0;
    while (mantissa >= kExact) {
        mantissa /= 2;
        ++power;
    }
    const auto bucket = static_cast<std::int32_t>(power * kPerPower + mantissa);
    return duration < 0 ? -bucket : bucket;
}

std::int64_t middleOf(std::int32_t signedBucket) {
    const std::int64_t bucket = std::abs(signedBucket);
    const std::int64_t power = bucket < kExact ? 0 : bucket / kPerPower - 1;
    const std::int64_t width = std::int64_t{1} << power;
    const std::int64_t middle = (bucket - power * kPerPower) * width + width / 2;
    return signedBucket < 0 ? -middle : middle;
}

}  // namespace

void Distribution::add(Duration duration) {
    largest = total == 0 ? duration : std::max(largest, duration);
    ++counts[bucketOf(duration.count())];
    ++total;
}

Distribution::Duration Distribution::percentile(double share) const {
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(total)));
    std::uint64_t seen = 0;
    for (const auto& [bucket, count] : counts) {
        seen += count;
        if (seen >= wanted) {
            return std::min(Duration(middleOf(bucket)), largest);
        }
    }
    return {};
}

}  // namespace com_tesk::replay
