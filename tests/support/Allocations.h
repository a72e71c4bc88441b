#pragma once

#include <cstddef>

// Observes and limits operator new. A program that uses this has Allocations.cpp among its sources.
namespace com_tesk::test {

/// Returns the bytes that operator new has given to this process and that have not been given back.
std::size_t allocatedBytes();

/// Returns how many allocations of all threads are not freed yet.
long liveAllocations();

/// Makes allocations of all threads throw std::bad_alloc when they are larger than a limit, from construction to
/// destruction. One at a time.
class AllocationLimit {
  public:
    explicit AllocationLimit(std::size_t newLimit);
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
    ~AllocationLimit();

    /// Returns the largest size requested since construction, granted or not.
    std::size_t largestRequest() const;
};

/// Makes allocations of the calling thread throw std::bad_alloc, from construction to destruction. The first `granted`
/// succeed, then one or all of them fail. One at a time per thread.
class FailingMemory {
  public:
    enum Kind { ONLY_ONE, ALL_LATER };

    FailingMemory(int granted, Kind kind);
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;
    ~FailingMemory();

    bool hasFailed() const;
};

}  // namespace com_tesk::test
