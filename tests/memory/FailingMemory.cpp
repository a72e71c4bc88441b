#include "tests/memory/FailingMemory.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace com_tesk::test {

namespace {

constexpr int kUnlimited = -1;

thread_local int allocationsLeft = kUnlimited;
thread_local FailingMemory::Kind failureKind = FailingMemory::ONLY_ONE;
thread_local bool allocationFailed = false;
std::atomic<long> live{0};

/// Whether the next allocation of this thread is to succeed.
bool isGranted() {
    if (allocationsLeft == kUnlimited) {
        return true;
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
        return true;
    }
    allocationFailed = true;
    if (failureKind == FailingMemory::ONLY_ONE) {
        allocationsLeft = kUnlimited;
    }
    return false;
}

void* allocate(std::size_t size) {
    void* const memory = isGranted() ? std::malloc(size == 0 ? 1 : size) : nullptr;
    if (memory != nullptr) {
        ++live;
    }
    return memory;
}

void* allocateOrThrow(std::size_t size) {
    void* const memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void release(void* memory) {
    if (memory != nullptr) {
        --live;
        std::free(memory);
    }
}

}  // namespace

FailingMemory::FailingMemory(int granted, Kind kind) {
    allocationFailed = false;
    failureKind = kind;
    allocationsLeft = granted;
}

FailingMemory::~FailingMemory() {
    allocationsLeft = kUnlimited;
}

bool FailingMemory::hasFailed() const {
    return allocationFailed;
}

long liveAllocations() {
    return live;
}

}  // namespace com_tesk::test

// Every form is replaced, so that none of a sanitizer's is left to be mixed with these.

void* operator new(std::size_t size) {
    return com_tesk::test::allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return com_tesk::test::allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return com_tesk::test::allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return com_tesk::test::allocate(size);
}
void operator delete(void* memory) noexcept {
    com_tesk::test::release(memory);
}
void operator delete[](void* memory) noexcept {
    com_tesk::test::release(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    com_tesk::test::release(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    com_tesk::test::release(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    com_tesk::test::release(memory);
}
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept {
    com_tesk::test::release(memory);
}
