#pragma once

#include <cstddef>
#include <functional>
#include <utility>

namespace com_tesk::test {

/// As long as it lives, its thread holds one mutex for longer: `beforeRelease` runs before each release of it. The mutex is
/// the first inside `object` that the thread takes.
class HeldMutex {
  public:
    template <typename Object>
    HeldMutex(const Object& object, std::function<void()> beforeRelease)
        : HeldMutex(&object, sizeof object, std::move(beforeRelease)) {}
    HeldMutex(const HeldMutex&) = delete;
    HeldMutex& operator=(const HeldMutex&) = delete;
    ~HeldMutex();

    // What the system's functions of this program call.

    void locked(const void* mutex);
    void releasing(const void* mutex);

  private:
    HeldMutex(const void* object, std::size_t size, std::function<void()> beforeRelease);

    const char* const begin;
    const char* const end;
    const std::function<void()> action;
    const void* first = nullptr;
};

}  // namespace com_tesk::test
