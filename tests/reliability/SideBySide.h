#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace com_tesk::test {

/// Does `work(0)` to `work(count - 1)`, at most `width` of them at a time: each sleeps more than it works. What one
/// returns says what went wrong; empty when nothing did. After a few complaints nothing new is begun: what goes wrong
/// mostly waits for long, and the same goes wrong everywhere.
/// @return the complaints, one per line; empty when all went well.
inline std::string sideBySide(std::size_t count, std::size_t width,
                              const std::function<std::string(std::size_t index)>& work) {
    constexpr int kEnough = 5;
    std::atomic<std::size_t> next{0};
    std::atomic<int> complaintCount{0};
    std::mutex mutex;
    std::string complaints;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < std::min(count, width); ++i) {
        threads.emplace_back([&] {
            for (std::size_t index = next++; index < count && complaintCount < kEnough; index = next++) {
                const std::string complaint = work(index);
                if (!complaint.empty()) {
                    ++complaintCount;
                    const std::lock_guard<std::mutex> lock(mutex);
                    complaints += "no. " + std::to_string(index) + ": " + complaint + "\n";
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return complaints;
}

}  // namespace com_tesk::test
