#include "tools/replay/OutputCheck.h"

#include <array>
#include <charconv>
#include <cmath>
#include <deque>
#include <limits>
#include <utility>

#include "tools/replay/StepCheck.h"

namespace com_tesk::replay {

namespace {

constexpr double kInfinite = std::numeric_limits<double>::infinity();

double numberOf(HostValue value) {
    return value.isInteger() ? value.asInteger() : static_cast<double>(value.asReal());
}

/// Compares the last values.
class FinalCheck final : public OutputCheck {
  public:
    explicit FinalCheck(const Rule& rule) : tolerance(rule.tolerance) {}

    void know(HostValue value) override { known = value; }
    void expect(Time /*time*/, HostValue value) override { recorded = value; }
    void publish(Time /*time*/, HostValue value) override { program = value; }
    void advance(Time /*known*/) override {}
    void finish(Time end) override {
        const auto expected = recorded ? recorded : known;
        if (!recorded && !program) {
            return;
        }
        found.compared = expected ? 1 : 0;
        found.largestError = expected && program ? errorOf(*expected, *program) : kInfinite;
        if (!(found.largestError <= tolerance)) {
            found.note(end, expected ? textOf(*expected) : "nothing", program ? textOf(*program) : "nothing");
        }
    }

  private:
    const double tolerance;
    std::optional<HostValue> known;
    std::optional<HostValue> recorded;
    std::optional<HostValue> program;
};

/// Compares the values in their order. Equal values after one another count once.
class SequenceCheck final : public OutputCheck {
  public:
    explicit SequenceCheck(const Rule& rule) : tolerance(rule.tolerance) {}

    void know(HostValue value) override {
        lastRecorded = value;
        lastProgram = value;
    }
    void expect(Time time, HostValue value) override { add(recorded, lastRecorded, time, value); }
    void publish(Time time, HostValue value) override { add(program, lastProgram, time, value); }
    void advance(Time /*known*/) override {
        while (!found.first && !recorded.empty() && !program.empty()) {
            const auto [time, expected] = recorded.front();
            const auto [programTime, got] = program.front();
            const double error = errorOf(expected, got);
            ++found.compared;
            found.largestError = std::max(found.largestError, error);
            if (!(error <= tolerance)) {
                found.note(time, textOf(expected), textOf(got));
            }
            found.latency.add(programTime - time);
            recorded.pop_front();
            program.pop_front();
        }
    }
    void finish(Time end) override {
        advance(end);
        if (found.first) {
            return;
        }
        if (!recorded.empty()) {
            miss(recorded.front().first, textOf(recorded.front().second), "nothing");
        } else if (!program.empty()) {
            miss(program.front().first, "nothing", textOf(program.front().second));
        }
    }

  private:
    using Queue = std::deque<std::pair<Time, HostValue>>;

    void add(Queue& queue, std::optional<HostValue>& last, Time time, HostValue value) {
        constexpr std::size_t kMax = 100'000;  // The other side is not expected to follow any more.
        if (last != value && !found.first) {
            queue.emplace_back(time, value);
        }
        last = value;
        if (queue.size() > kMax) {
            finish(time);
            queue.clear();
        }
    }
    void miss(Time time, std::string expected, std::string got) {
        found.largestError = kInfinite;
        found.note(time, std::move(expected), std::move(got));
    }

    const double tolerance;
    Queue recorded;
    Queue program;
    std::optional<HostValue> lastRecorded;
    std::optional<HostValue> lastProgram;
};

}  // namespace

void Finding::note(Time time, std::string expected, std::string got) {
    if (!first || time < first->time) {
        first = Difference{time, std::move(expected), std::move(got)};
    }
}

std::unique_ptr<OutputCheck> checkOf(const Rule& rule) {
    if (rule.mode == Mode::FINAL) {
        return std::make_unique<FinalCheck>(rule);
    }
    if (rule.mode == Mode::SEQUENCE) {
        return std::make_unique<SequenceCheck>(rule);
    }
    return std::make_unique<StepCheck>(rule);
}

double errorOf(HostValue one, HostValue other) {
    const double a = numberOf(one);
    const double b = numberOf(other);
    if (one.isInteger() != other.isInteger() || std::isnan(a) != std::isnan(b)) {
        return kInfinite;
    }
    return one == other || a == b || std::isnan(a) ? 0 : std::abs(a - b);
}

std::string textOf(HostValue value) {
    std::array<char, 40> text{};
    const auto written = value.isInteger() ? std::to_chars(text.data(), text.data() + text.size(), value.asInteger())
                                           : std::to_chars(text.data(), text.data() + text.size(), value.asReal());
    return (value.isInteger() ? "i:" : "") + std::string(text.data(), written.ptr);
}

}  // namespace com_tesk::replay
