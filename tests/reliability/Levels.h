#pragma once

#include <cstddef>
#include <string>

namespace com_tesk::test {

/// What this process holds of the system.
struct Levels {
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    std::size_t virtualBytes = 0;
    std::size_t heapBytes = 0;  ///< allocated and not freed

    static Levels now();
};

/// Keeps the system's allocator from growing with the number of threads, which would hide what the library keeps.
/// Before the first thread.
void boundTheAllocator();

/// A thread that has been joined may still be counted for a moment; this one is gone when the call returns.
void startAndEndAThread();

/// The levels once the threads and descriptors that are on their way out are gone: as soon as there are as few as in
/// `expected`, at the latest after ten seconds.
Levels settledLevels(const Levels& expected);

/// What has grown from `before` to `after`; empty when nothing has. Threads and descriptors may not grow at all, the
/// heap by 64 KiB and the virtual size by 96 MiB, which is twelve stacks: the system keeps some that have ended.
std::string growth(const Levels& before, const Levels& after);

}  // namespace com_tesk::test
