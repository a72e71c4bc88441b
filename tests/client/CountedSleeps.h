#pragma once

#include <functional>

namespace com_tesk::test {

/// While it lives, the sleeps of the thread that created it take no time and are counted. What happens at the host
/// "meanwhile" happens in `duringSleep`, so that the order of looks and events is exact, however busy the machine is.
///
/// It catches `clock_nanosleep`, the call that sleeps to a deadline, and `pthread_cond_timedwait`, that of a pause that
/// can be ended early.
class CountedSleeps {
  public:
    /// @param duringSleep  called in each sleep with its number, from 1 on.
    explicit CountedSleeps(std::function<void(int)> duringSleep = {});
    CountedSleeps(const CountedSleeps&) = delete;
    CountedSleeps& operator=(const CountedSleeps&) = delete;
    ~CountedSleeps();

    int count() const { return sleeps; }

    /// One sleep of this thread that was to last so many seconds.
    void sleep(double seconds);

  private:
    const std::function<void(int)> duringSleep;
    int sleeps = 0;
};

/// While it lives, the sleeps of all threads but the one that created it last half a minute longer, unless something ends
/// them early. A test then tells a pause that was ended from one that was waited for, however busy the machine is.
/// It catches the same calls.
class LongPauses {
  public:
    LongPauses();
    LongPauses(const LongPauses&) = delete;
    LongPauses& operator=(const LongPauses&) = delete;
    ~LongPauses();

    /// Whether such a sleep begins before a bound of ten seconds.
    static bool waitForOne();
};

}  // namespace com_tesk::test
