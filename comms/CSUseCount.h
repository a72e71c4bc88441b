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
        explicit Use(CSUseCount& useCount) : count(useCount) { count.users.fetch_add(1); }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use() { count.users.fetch_sub(1); }

      private:
        CSUseCount& count;
    };

    bool isInUse() const { return users.load() != 0; }

    /// Blocks until a moment at which nobody is counted. Looks every 50 microseconds, so that users of a lower
    /// real-time priority get to run.
    void waitUntilUnused() const;

  private:
    std::atomic<unsigned int> users{0};
};

}  // namespace com_tesk
