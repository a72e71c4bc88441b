#pragma once

namespace com_tesk::test {

/// Makes one allocation of this thread fail: the one after `successes` more have succeeded. Undone on destruction.
class FailingAllocation {
  public:
    explicit FailingAllocation(int successes);
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation();

    /// Whether the allocation that fails has been reached.
    static bool hasFailed();
};

}  // namespace com_tesk::test
