#pragma once

#include <cstddef>

namespace com_tesk::test {

/// Bytes that `operator new` has given to this process and that have not been given back.
std::size_t allocatedBytes();

/// Lets `operator new` throw std::bad_alloc on every thread for what is larger than the limit, from construction to
/// destruction. Not nestable. Works under sanitizers too, where the address space cannot be limited.
class AllocationsAtMost {
  public:
    explicit AllocationsAtMost(std::size_t largest);
    AllocationsAtMost(const AllocationsAtMost&) = delete;
    AllocationsAtMost& operator=(const AllocationsAtMost&) = delete;
    ~AllocationsAtMost();

    /// The largest that was asked for since construction, whether it was granted or not.
    std::size_t largestWanted() const;
};

}  // namespace com_tesk::test
