#pragma once

#include <cstddef>
#include <functional>
#include <utility>

namespace com_tesk::test {

/// While it exists, `beforeRelease` runs each time before its thread unlocks the first mutex that it locked inside
/// `object`.
class HeldMutex {
  public:
    template <typename Object>
    HeldMutex(const Object& object, std::function<void()> beforeRelease)
        : HeldMutex(&object, sizeof object, std::move(beforeRelease)) {}
    HeldMutex(const HeldMutex&) = delete;
    HeldMutex& operator=(const HeldMutex&) = delete;
    ~HeldMutex();

  private:
    HeldMutex(const void* object, std::size_t size, std::function<void()> beforeRelease);

    const std::function<void()> action;
};

/// While one exists, the system refuses to start threads for the thread that created it.
class NoMoreThreads {
  public:
    NoMoreThreads();
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;
    ~NoMoreThreads();

    /// Returns how many threads have been refused, to any thread.
    static int refusals();
};

}  // namespace com_tesk::test
