#pragma once

#include <atomic>

namespace com_tesk {

/// Counts the threads that are using something, so that whoever takes it away can wait until the last has let go.
///
/// The pattern: users enter first and look second (`Use`, then read the thing); the taker takes it away first and
/// waits second. A user that enters too late then finds it gone.
class CSUseCount {
  public:
    /// Counts the calling thread as a user for a scope. Never blocks.
    class Use {
      public:
        explicit Use(CSUseCount& useCount) : count(useCount), isFirst(!count.first.exchange(true)) {
            if (!isFirst) {
                count.others.fetch_add(1);
            }
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use() {
            if (isFirst) {
                count.first.store(false, std::memory_order_release);
            } else {
                count.others.fetch_sub(1);
            }
        }

      private:
        CSUseCount& count;
        const bool isFirst;
    };

    bool isInUse() const { return first.load() || others.load() != 0; }

    /// Blocks until all who are counted when it is called have left; who comes later can prolong it. Looks every 50
    /// microseconds, so that users of a lower real-time priority get to run.
    void waitUntilUnused() const;

  private:
    /// A user that meets nobody only sets this, as a plain store is cheaper to leave by than a subtraction.
    std::atomic<bool> first{false};
    std::atomic<unsigned int> others{0};
};

}  // namespace com_tesk
