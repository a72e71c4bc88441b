#include "tests/support/Allocations.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace com_tesk::test {

namespace {

constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();
constexpr int kEndless = -1;

std::atomic<std::size_t> sizeLimit{kUnlimited};
std::atomic<std::size_t> largestRequested{0};
std::atomic<std::size_t> heldBytes{0};
std::atomic<long> live{0};

thread_local int grantsLeft = kEndless;
thread_local FailingMemory::Kind failureKind = FailingMemory::ONLY_ONE;
thread_local bool hasAllocationFailed = false;

/// True when the next allocation of this thread is to fail.
bool failsNow() {
    if (grantsLeft != 0) {
        grantsLeft -= grantsLeft == kEndless ? 0 : 1;
        return false;
    }
    hasAllocationFailed = true;
    if (failureKind == FailingMemory::ONLY_ONE) {
        grantsLeft = kEndless;
    }
    return true;
}

void* allocate(std::size_t size) noexcept {
    const std::size_t allowed = sizeLimit;
    if (allowed != kUnlimited) {
        for (std::size_t known = largestRequested;
             size > known && !largestRequested.compare_exchange_weak(known, size);) {
        }
    }
    void* const memory = size > allowed || failsNow() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory != nullptr) {
        ++live;
        heldBytes += malloc_usable_size(memory);
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

void release(void* memory) noexcept {
    if (memory != nullptr) {
        --live;
        heldBytes -= malloc_usable_size(memory);
        std::free(memory);
    }
}

}  // namespace

std::size_t allocatedBytes() {
    return heldBytes;
}

long liveAllocations() {
    return live;
}

AllocationLimit::AllocationLimit(std::size_t newLimit) {
    largestRequested = 0;
    sizeLimit = newLimit;
}

AllocationLimit::~AllocationLimit() {
    sizeLimit = kUnlimited;
}

std::size_t AllocationLimit::largestRequest() const {
    return largestRequested;
}

FailingMemory::FailingMemory(int granted, Kind kind) {
    hasAllocationFailed = false;
    failureKind = kind;
    grantsLeft = granted;
}

FailingMemory::~FailingMemory() {
    grantsLeft = kEndless;
}

bool FailingMemory::hasFailed() const {
    return hasAllocationFailed;
}

}  // namespace com_tesk::test

// All of them, because memory of one allocator must not reach another. The forms for arrays call these.
void* operator new(std::size_t size) {
    return com_tesk::test::allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return com_tesk::test::allocate(size);
}
void operator delete(void* memory) noexcept {
    com_tesk::test::release(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    com_tesk::test::release(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    com_tesk::test::release(memory);
}
