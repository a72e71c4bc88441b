#pragma once

#include <array>
#include <atomic>

#include "comms/CSMutex.h"

namespace com_tesk {

/// Counts the threads that use a handle, so that a thread that clears it can wait until they have left.
///
/// A user increments the count before it reads the handle (`Use`). The closer clears the handle, then waits
/// (`waitForUsers`). A user that comes later finds the handle cleared, and the closer does not wait for it.
///
/// There are two counts, and users take the current one. A closer makes the other count current and then waits for the
/// first to reach zero, so users that come later cannot prolong the wait.
class CSUseCount {
  public:
    /// Counts the calling thread as a user for a scope. Never blocks.
    class Use {
      public:
        explicit Use(CSUseCount& useCount) : count(useCount.enter()) {}
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use() { count.fetch_sub(1); }

      private:
        std::atomic<unsigned int>& count;
    };

    /// True when any thread is counted. Never blocks.
    bool isInUse() const { return counts[0].load() != 0 || counts[1].load() != 0; }

    /// Blocks until all users that were counted when it was called have left. Later users do not count. Polls every
    /// 50 microseconds, so that users of a lower real-time priority can run. Not a cancellation point.
    void waitForUsers() CSCLIENT_EXCLUDES(closersMutex);

  private:
    std::atomic<unsigned int>& countOf(unsigned int ofEra) { return counts[ofEra % 2]; }

    std::atomic<unsigned int>& enter() {
        for (;;) {
            const unsigned int current = era.load();
            std::atomic<unsigned int>& count = countOf(current);
            count.fetch_add(1);
            if (era.load() == current) {
                return count;
            }
            // A closer has changed the era between the two loads and may have missed this thread.
            count.fetch_sub(1);
        }
    }

    /// The number of calls of `waitForUsers`. It selects the current count.
    std::atomic<unsigned int> era{0};
    std::array<std::atomic<unsigned int>, 2> counts{};
    /// Admits one closer at a time, because the count that it makes current must be zero.
    CSMutex closersMutex;
};

}  // namespace com_tesk
