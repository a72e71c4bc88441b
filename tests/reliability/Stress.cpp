#include "tests/reliability/Stress.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "tests/support/Emulator.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Waiting.h"

namespace com_tesk::test {

namespace {

constexpr std::size_t kHeapTolerance = std::size_t{64} * 1024;
constexpr std::size_t kVirtualTolerance = std::size_t{96} * 1024 * 1024;

/// The allocator grows with the number of threads unless it is limited before the first one. With the first thread, the
/// thread sanitizer starts one of its own, which must not count as growth.
[[maybe_unused]] const bool kIsProcessPrepared = [] {
    mallopt(M_ARENA_MAX, 2);
    std::thread([] {}).join();
    return true;
}();

std::size_t countEntries(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::string grown(const char* what, std::size_t before, std::size_t after, std::size_t tolerance) {
    return after <= before + tolerance
               ? ""
               : std::string(what) + " from " + std::to_string(before) + " to " + std::to_string(after) + "; ";
}

}  // namespace

ResourceUsage ResourceUsage::now() {
    std::size_t virtualPages = 0;
    std::size_t residentPages = 0;
    std::ifstream("/proc/self/statm") >> virtualPages >> residentPages;
    const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const struct mallinfo2 heap = mallinfo2();
    return {countEntries("/proc/self/task"), countEntries("/proc/self/fd"), virtualPages * pageSize,
            residentPages * pageSize, heap.uordblks + heap.hblkhd};
}

ResourceUsage ResourceUsage::settled(const ResourceUsage& expected) {
    ResourceUsage usage;
    waitUntil(
        [&] {
            usage = now();
            return usage.threads <= expected.threads && usage.descriptors <= expected.descriptors;
        },
        std::chrono::seconds(10));
    return usage;
}

std::string ResourceUsage::growthSince(const ResourceUsage& before) const {
    std::string text =
        grown("threads", before.threads, threads, 0) + grown("descriptors", before.descriptors, descriptors, 0);
    // Sanitizers keep freed memory and memory of their own.
    if (!kUnderSanitizer) {
        text += grown("heap bytes", before.heapBytes, heapBytes, kHeapTolerance);
        // An emulator's own memory grows with the code that it has translated.
        if (!isEmulated()) {
            text += grown("virtual bytes", before.virtualBytes, virtualBytes, kVirtualTolerance);
        }
    }
    return text;
}

void sideBySide(std::size_t count, std::size_t width, const std::function<void(std::size_t index)>& work) {
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < std::min(count, width); ++i) {
        threads.emplace_back([&] {
            for (std::size_t index = next++; index < count && !testing::Test::HasFailure(); index = next++) {
                SCOPED_TRACE("no. " + std::to_string(index));
                work(index);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace com_tesk::test
