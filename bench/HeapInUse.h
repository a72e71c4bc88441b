#pragma once

#include <cstddef>

namespace com_tesk::bench {

/// What all threads of this process hold of the heap, as the allocator books it: what was asked for, rounded up, and
/// one word for each block. The bench/HeapInUse.cpp of a program replaces operator new for that. What the
/// system's own libraries take otherwise (a thread's stack, the buffers of streams) is not in it.
std::size_t heapInUse();

/// How often all threads have called operator new so far.
unsigned long allocationsSoFar();

}  // namespace com_tesk::bench
