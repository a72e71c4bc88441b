#include "tools/csmqtt/RunId.h"

#include <charconv>
#include <chrono>
#include <cstdint>
#include <random>

namespace com_tesk::mqtt {

namespace {

/// Returns when the run has started; 0 without a run id.
std::int64_t startOf(std::string_view runId) {
    std::int64_t start = 0;
    std::from_chars(runId.data(), runId.data() + runId.size(), start);
    return start;
}

}  // namespace

std::string newRunId() {
    std::random_device device;
    const auto since = std::chrono::system_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(since).count()) + '-' +
           std::to_string((std::uint64_t{device()} << 32U) | device());
}

bool isLaterRun(std::string_view one, std::string_view other) {
    return startOf(one) > startOf(other);
}

std::string_view runIdInStatistics(std::string_view payload) {
    // Only what a bridge has written counts, and that has no blanks. A search needs no memory and no depth.
    constexpr std::string_view kBefore = R"("run":")";
    const std::size_t before = payload.find(kBefore);
    if (before == std::string_view::npos) {
        return {};
    }
    const std::string_view rest = payload.substr(before + kBefore.size());
    const std::size_t end = rest.find('"');
    return end == std::string_view::npos ? std::string_view() : rest.substr(0, end);
}

}  // namespace com_tesk::mqtt
