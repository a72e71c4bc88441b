#pragma once

namespace com_tesk::bench {

/// How often this thread has called operator new so far. The bench/CountedAllocations.cpp of a program replaces it.
unsigned long countedAllocations();

}  // namespace com_tesk::bench
