#pragma once

namespace com_tesk::test {

/// Lets allocations of the calling thread fail with std::bad_alloc, from construction to destruction: the first
/// `granted` succeed, and then one or all of them fail. One at a time per thread. Needs FailingMemory.cpp in the
/// program.
class FailingMemory {
  public:
    enum Kind { ONLY_ONE, ALL_LATER };

    FailingMemory(int granted, Kind kind);
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;
    ~FailingMemory();

    /// Whether an allocation has failed.
    bool hasFailed() const;
};

/// How many allocations of all threads are not freed yet.
long liveAllocations();

}  // namespace com_tesk::test
