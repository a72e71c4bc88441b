#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "tools/replay/OutputCheck.h"

namespace com_tesk::replay {

/// Compares everything that a program publishes with what was recorded. Any thread.
class Comparison {
  public:
    /// @param outputRules  outlive this object.
    explicit Comparison(const Rules& outputRules) : rules(outputRules) {}

    /// As the operations of `OutputCheck`, for the output of that name.
    /// @{
    void know(const std::string& name, HostValue value);
    void expect(const std::string& name, Time time, HostValue value);
    void publish(const std::string& name, Time time, HostValue value);
    void advance(Time known);
    void finish(Time end);
    /// @}

    /// True when no output has a difference.
    bool isEqual() const;

    /// Returns a table with a line for each output.
    /// @param recordedTimeOf  turns a time of the replay into one of the recording.
    /// @param rate            of the replay.
    std::string table(const std::function<Time(Time)>& recordedTimeOf, double rate) const;

  private:
    OutputCheck* outputOf(const std::string& name);

    const Rules& rules;
    mutable std::mutex mutex;
    std::map<std::string, std::unique_ptr<OutputCheck>> outputs;  ///< Null for one that is ignored.
    Time advanced{};
};

}  // namespace com_tesk::replay
