#pragma once

#include <pthread.h>

#include <cstddef>

namespace com_tesk::test {

/// For its scope, no thread gets a stack: the default size is more than there is.
class NoStacks {
  public:
    NoStacks() {
        pthread_getattr_default_np(&previous);
        pthread_attr_t huge;
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, kMoreThanThereIs);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    NoStacks(const NoStacks&) = delete;
    NoStacks& operator=(const NoStacks&) = delete;
    ~NoStacks() {
        pthread_setattr_default_np(&previous);
        pthread_attr_destroy(&previous);
    }

  private:
    /// Seven eighths of 32 bits are not free in one piece, a quarter of 64 bits is beyond what processors address.
    static constexpr std::size_t kMoreThanThereIs =
        sizeof(std::size_t) > 4 ? std::size_t{1} << (sizeof(std::size_t) * 8 - 2) : std::size_t{0xE0000000U};

    pthread_attr_t previous;
};

}  // namespace com_tesk::test
