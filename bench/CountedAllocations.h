#pragma once

namespace com_tesk::bench {

/// Returns how often this thread has called operator new. A program that links bench/CountedAllocations.cpp replaces
/// operator new to count the calls.
unsigned long countedAllocations();

}  // namespace com_tesk::bench
