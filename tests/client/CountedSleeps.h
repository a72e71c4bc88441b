#pragma once

#include <functional>

namespace com_tesk::test {

/// While it lives, the sleeps of the thread that created it take no time and are counted. What happens at the host
/// "meanwhile" happens in `duringSleep`, so that the order of looks and events is exact, however busy the machine is.
///
/// It catches `clock_nanosleep`, the call that sleeps to a deadline.
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

}  // namespace com_tesk::test
