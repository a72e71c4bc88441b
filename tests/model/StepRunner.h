#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/model/Step.h"

namespace com_tesk::test {

/// What happens, in order, each as one text: "result 0", "sent " and the bytes of a frame, "out " and a line,
/// "0 state 1->2", "sleep", "connect", "disconnect" ...
using EventLog = std::vector<std::string>;

/// Performs the steps of a sequence and logs what happens: with the model, or with the real engine.
class StepRunner {
  public:
    StepRunner() = default;
    StepRunner(const StepRunner&) = delete;
    StepRunner& operator=(const StepRunner&) = delete;
    virtual ~StepRunner() = default;

    void apply(const Step& step);
    virtual void applyAll(const std::vector<Step>& steps) {
        std::for_each(steps.begin(), steps.end(), [this](const Step& step) { apply(step); });
    }

    /// The answers of queries: about all parameters, and about each of these names.
    virtual std::string answers(const std::vector<std::string>& names) const = 0;
    /// The tables and the published values.
    virtual std::string tables() const = 0;
    virtual bool holdsAnyLock() const = 0;

    EventLog log;

  protected:
    /// Returns the result of the operation, if it has one.
    virtual std::optional<std::uint32_t> perform(const Step& step) = 0;
    virtual void performOnAnotherThread(const std::vector<Step>& steps) = 0;
    /// True when this thread is changing the tables, or writing what is registered.
    virtual bool holdsTables() const = 0;
    /// True when this thread is changing the state.
    virtual bool holdsChange() const = 0;

    /// Performs the steps that wait for this event.
    void happen(Step::Event event, std::uint32_t number);
    /// Logs a callback, and performs the steps that wait for it.
    void callBack(std::uint32_t callback, Step::Event event, const std::string& what);

    bool doOthersHoldChange() const { return othersHoldChange; }

  private:
    /// Steps of kind `DURING` and `MEANWHILE`, by event and interface.
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::deque<Step>> insides;
    // Of the threads that wait for the current one.
    bool othersHoldTables = false;
    bool othersHoldChange = false;
};

/// Returns a runner that performs steps with the real engine.
std::unique_ptr<StepRunner> newEngineUnderTest(std::uint32_t simulatorId, std::uint32_t options);

/// Runs `steps`. Meanwhile, the sleeps of this thread take no time: each calls `onSleep`. Each poll for a lock that
/// another thread holds calls `onPoll`.
void runWithoutSleeping(const std::function<void()>& onSleep, const std::function<void()>& onPoll,
                        const std::function<void()>& steps);

/// Where the engine and the model first differ.
struct Difference {
    std::size_t step = 0;
    std::string what;
};

/// Performs a sequence with the engine and with the model. Compares after each step what has happened, the four tables, and
/// the answers of queries about one name; of all names every now and then and at the end.
/// @param onFrame  called with each frame that the engine has sent.
std::optional<Difference> firstDifference(
    const StepSequence& sequence,
    const std::function<void(const std::string& frame)>& onFrame = [](const std::string&) {});

}  // namespace com_tesk::test
