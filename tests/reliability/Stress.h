#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace com_tesk::test {

/// The resources of the system that this process has.
struct ResourceUsage {
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    std::size_t virtualBytes = 0;
    std::size_t residentBytes = 0;
    std::size_t heapBytes = 0;  ///< allocated and not freed

    static ResourceUsage now();

    /// Waits until no more threads and descriptors exist than in `expected`, at most ten seconds.
    static ResourceUsage settled(const ResourceUsage& expected);

    /// Describes what has grown since `before`; empty when nothing has. Threads and descriptors may not grow at all. The
    /// heap may grow by 64 KiB, and the virtual size by 96 MiB: twelve stacks, because the system keeps some.
    std::string growthSince(const ResourceUsage& before) const;
};

/// Does `work(0)` to `work(count - 1)`, at most `width` of them at a time: each sleeps more than it works. After a failed
/// expectation nothing new is begun: failures mostly wait for long.
void sideBySide(std::size_t count, std::size_t width, const std::function<void(std::size_t index)>& work);

}  // namespace com_tesk::test
