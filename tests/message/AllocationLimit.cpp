#include "tests/message/AllocationLimit.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

thread_local std::size_t limit = kUnlimited;

/// The bytes that are allocated now.
std::atomic<std::size_t> held{0};

void* counted(void* memory) noexcept {
    held += malloc_usable_size(memory);
    return memory;
}

void release(void* memory) noexcept {
    held -= malloc_usable_size(memory);
    std::free(memory);
}

void* allocate(std::size_t size) noexcept {
    return size > limit ? nullptr : counted(std::malloc(size == 0 ? 1 : size));
}

void* allocateOrThrow(std::size_t size) {
    void* const memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

// All of them, because memory of one allocator must not reach another. The forms for arrays call these.
void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    release(memory);
}

namespace com_tesk::test {

std::size_t allocatedBytes() {
    return held;
}

AllocationLimit::AllocationLimit(std::size_t largest) {
    limit = largest;
}

AllocationLimit::~AllocationLimit() {
    limit = kUnlimited;
}

}  // namespace com_tesk::test
