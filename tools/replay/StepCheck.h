#pragma once

#include <cstddef>
#include <deque>
#include <limits>

#include "tools/replay/OutputCheck.h"

namespace com_tesk::replay {

/// Compares two step functions. Each recorded value must be there within the window, and each value of the program must
/// be a recorded one within the window, for as long as the program holds it. Remembers what the window needs.
class StepCheck final : public OutputCheck {
  public:
    explicit StepCheck(const Rule& rule) : tolerance(rule.tolerance), window(rule.window) {}

    void know(HostValue value) override;
    void expect(Time time, HostValue value) override;
    void publish(Time time, HostValue value) override;
    void advance(Time known) override;
    void finish(Time end) override;

  private:
    /// A value from its time until that of the next one, both included.
    struct Step {
        Time from{};
        HostValue value = HostValue::real(0);
    };
    class Steps {
      public:
        void add(Time time, HostValue value);
        bool isEmpty() const { return steps.empty(); }
        std::size_t size() const { return steps.size(); }
        const Step& operator[](std::size_t index) const { return steps[index]; }
        Time endOf(std::size_t index) const { return index + 1 < steps.size() ? steps[index + 1].from : kForever; }
        /// Removes the steps that have ended before that time. @return their number.
        std::size_t dropBefore(Time time);

      private:
        std::deque<Step> steps;
    };

    static constexpr Time kForever{std::numeric_limits<Time::rep>::max() / 4};
    static constexpr Time kBefore{-kForever};

    void judge(Time horizon);
    void judgeRecorded(const Step& step);
    void judgeProgram(Time from, Time to, HostValue value);

    const double tolerance;
    const Time window;
    Steps recorded;
    Steps program;
    std::size_t nextRecorded = 0;  ///< The first one that is not judged.
    Time judgedUntil{kBefore};
};

}  // namespace com_tesk::replay
