#pragma once

namespace com_tesk::test {

/// Limits the allocations of the calling thread, from construction to destruction. The first `granted` succeed. Then one
/// or all of them fail with std::bad_alloc. At most one object per thread.
class FailingAllocations {
  public:
    enum Kind { ONE, ALL };

    FailingAllocations(int granted, Kind kind);
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
    ~FailingAllocations();

    bool haveFailed() const;
};

}  // namespace com_tesk::test
