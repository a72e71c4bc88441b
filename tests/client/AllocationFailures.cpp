#include "tests/client/AllocationFailures.h"

#include <cstdlib>
#include <new>

namespace {

constexpr int kNever = -1;
thread_local int successesLeft = kNever;
thread_local bool failed = false;

void* allocate(std::size_t size) {
    if (successesLeft == 0) {
        successesLeft = kNever;
        failed = true;
        throw std::bad_alloc();
    }
    if (successesLeft > 0) {
        --successesLeft;
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace com_tesk::test {

FailingAllocation::FailingAllocation(int successes) {
    failed = false;
    successesLeft = successes;
}

FailingAllocation::~FailingAllocation() {
    successesLeft = kNever;
}

bool FailingAllocation::hasFailed() {
    return failed;
}

}  // namespace com_tesk::test
