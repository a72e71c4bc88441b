#pragma once

#include <cstddef>

namespace com_tesk::bench {

/// Returns the bytes of heap that all threads of this process hold, as the allocator counts them. A block counts with
/// the requested size, rounded up, plus one word for each block. bench/HeapInUse.cpp replaces operator new to count
/// them. Other memory of the system's libraries is not counted, such as a thread's stack or the buffers of streams.
std::size_t heapInUse();

/// Returns how often all threads have called operator new.
unsigned long allocationsSoFar();

}  // namespace com_tesk::bench
