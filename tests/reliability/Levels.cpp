#include "tests/reliability/Levels.h"

#include <dirent.h>
#include <malloc.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "tests/support/Emulator.h"
#include "tests/support/Sanitizers.h"

namespace com_tesk::test {

namespace {

constexpr std::size_t kHeapTolerance = std::size_t{64} * 1024;
constexpr std::size_t kVirtualTolerance = std::size_t{96} * 1024 * 1024;

std::size_t countEntries(const char* folder) {
    DIR* const directory = opendir(folder);
    std::size_t count = 0;
    while (readdir(directory) != nullptr) {
        ++count;
    }
    closedir(directory);
    return count;
}

std::string grown(const char* what, std::size_t before, std::size_t after, std::size_t tolerance) {
    if (after <= before + tolerance) {
        return "";
    }
    return std::string(what) + " from " + std::to_string(before) + " to " + std::to_string(after) + "; ";
}

}  // namespace

Levels Levels::now() {
    Levels levels;
    levels.threads = countEntries("/proc/self/task");
    levels.descriptors = countEntries("/proc/self/fd");
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    levels.virtualBytes = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const struct mallinfo2 heap = mallinfo2();
    levels.heapBytes = heap.uordblks + heap.hblkhd;
    return levels;
}

void boundTheAllocator() {
    mallopt(M_ARENA_MAX, 2);
}

void startAndEndAThread() {
    std::string task;
    std::thread([&task] { task = "/proc/self/task/" + std::to_string(syscall(SYS_gettid)); }).join();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (access(task.c_str(), F_OK) == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

Levels settledLevels(const Levels& expected) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    Levels levels = Levels::now();
    while ((levels.threads > expected.threads || levels.descriptors > expected.descriptors) &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        levels = Levels::now();
    }
    return levels;
}

std::string growth(const Levels& before, const Levels& after) {
    std::string text = grown("threads", before.threads, after.threads, 0) +
                       grown("descriptors", before.descriptors, after.descriptors, 0);
    // Sanitizers keep freed memory and shadows of their own: what they hold says nothing about the library.
    if (!kUnderSanitizer) {
        text += grown("heap bytes", before.heapBytes, after.heapBytes, kHeapTolerance);
        // An emulator's own memory grows with what it has translated.
        if (!isEmulated()) {
            text += grown("virtual bytes", before.virtualBytes, after.virtualBytes, kVirtualTolerance);
        }
    }
    return text;
}

}  // namespace com_tesk::test
