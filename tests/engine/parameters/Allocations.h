#pragma once

#include <atomic>

namespace com_tesk::test {

/// Lets the calling thread's allocations run dry, from construction to destruction: the first `granted` succeed, and
/// then one or all of them fail with std::bad_alloc. One at a time per thread.
class FailingAllocations {
  public:
    enum Kind { ONE, ALL };

    FailingAllocations(int granted, Kind kind);
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
    ~FailingAllocations();

    /// Whether an allocation has failed.
    bool haveFailed() const;
};

/// Counts the calling thread's allocations, from construction to destruction, into a counter that any thread may read.
class CountedAllocations {
  public:
    explicit CountedAllocations(std::atomic<int>& counter);
    CountedAllocations(const CountedAllocations&) = delete;
    CountedAllocations& operator=(const CountedAllocations&) = delete;
    ~CountedAllocations();
};

}  // namespace com_tesk::test
