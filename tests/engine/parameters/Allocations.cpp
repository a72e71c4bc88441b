#include "tests/engine/parameters/Allocations.h"

#include <cstdlib>
#include <new>

namespace com_tesk::test {

namespace {

constexpr int kUnlimited = -1;

thread_local int allocationsLeft = kUnlimited;
thread_local FailingAllocations::Kind failureKind = FailingAllocations::ONE;
thread_local bool allocationFailed = false;

/// True when the next allocation of this thread may succeed.
bool grantAllocation() {
    if (allocationsLeft == kUnlimited) {
        return true;
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
        return true;
    }
    allocationFailed = true;
    if (failureKind == FailingAllocations::ONE) {
        allocationsLeft = kUnlimited;
    }
    return false;
}

}  // namespace

FailingAllocations::FailingAllocations(int granted, Kind kind) {
    allocationFailed = false;
    failureKind = kind;
    allocationsLeft = granted;
}

FailingAllocations::~FailingAllocations() {
    allocationsLeft = kUnlimited;
}

bool FailingAllocations::haveFailed() const {
    return allocationFailed;
}

}  // namespace com_tesk::test

void* operator new(std::size_t size) {
    if (com_tesk::test::grantAllocation()) {
        if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
            return memory;
        }
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
