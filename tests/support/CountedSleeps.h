#pragma once

#include <functional>

namespace com_tesk::test {

/// While it exists, the sleeps of the thread that created it take no time and are counted. The test causes events in
/// `duringSleep`, so that the order of polls and events is exact, however busy the machine is.
///
/// It replaces `clock_nanosleep`, which the library's sleeps call, and `pthread_cond_timedwait`, which its pauses call.
class CountedSleeps {
  public:
    /// @param duringSleep  called in each sleep with its number, from 1 on.
    explicit CountedSleeps(std::function<void(int)> duringSleep = {});
    CountedSleeps(const CountedSleeps&) = delete;
    CountedSleeps& operator=(const CountedSleeps&) = delete;
    ~CountedSleeps();

    int count() const { return sleeps; }

    /// Counts one sleep of this thread. Its length would have been `seconds`.
    void sleep(double seconds);

  private:
    const std::function<void(int)> duringSleep;
    int sleeps = 0;
};

/// While it exists, the sleeps of all threads but the one that created it last half a minute longer, unless something
/// ends them early. A test then distinguishes a pause that was ended from one that was waited for, however busy the
/// machine is. It replaces the same calls.
class LongPauses {
  public:
    LongPauses();
    LongPauses(const LongPauses&) = delete;
    LongPauses& operator=(const LongPauses&) = delete;
    ~LongPauses();

    /// Returns whether such a sleep has begun before the bound.
    static bool waitForOne();
};

}  // namespace com_tesk::test
