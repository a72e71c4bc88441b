#include "bench/HeapInUse.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> inUse{0};
std::atomic<unsigned long> allocations{0};

std::size_t sizeOf(void* memory) {
    return malloc_usable_size(memory) + sizeof(std::size_t);
}

void release(void* memory) {
    if (memory != nullptr) {
        inUse -= sizeOf(memory);
        std::free(memory);
    }
}

}  // namespace

// These replace the language's own operators in the whole program. The other forms of operator new call these.

void* operator new(std::size_t size) {
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++allocations;
    inUse += sizeOf(memory);
    return memory;
}

void operator delete(void* memory) noexcept {
    release(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}

namespace com_tesk::bench {

std::size_t heapInUse() {
    return inUse;
}

unsigned long allocationsSoFar() {
    return allocations;
}

}  // namespace com_tesk::bench
