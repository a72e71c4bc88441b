#pragma once

#include <cstddef>

namespace com_tesk::test {

/// Returns the bytes that this process has allocated with `operator new` and not freed.
std::size_t allocatedBytes();

/// Lets `operator new` throw std::bad_alloc on the creating thread, from construction to destruction, for everything
/// larger than the limit. Not nestable. Needs AllocationLimit.cpp in the program.
class AllocationLimit {
  public:
    explicit AllocationLimit(std::size_t largest);
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
    ~AllocationLimit();
};

}  // namespace com_tesk::test
