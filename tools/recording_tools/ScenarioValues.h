#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tools/recording_tools/Reading.h"
#include "tools/recording_tools/ScenarioFacts.h"

namespace com_tesk::recording {

/// The values of a scenario. Names with many values have a file of CSV each next to the scenario.
class ScenarioValues {
  public:
    static constexpr std::uint64_t kMaxStepsInScenario = 50;

    /// @param scenarioPath  of the scenario, from which the names of the other files follow.
    ScenarioValues(const ScenarioFacts& facts, const std::string& scenarioPath);

    /// Collects the values, and writes the files of CSV in pieces.
    /// @throws std::system_error  a file cannot be written.
    void read(Reading& reading);

    /// Returns the lines of the scenario: `values:` and a line for each name. Empty without values.
    std::string text() const;

  private:
    struct Column {
        std::string file;  ///< Empty for steps in the scenario itself.
        std::string rows;  ///< Those that are not in the file yet, or the steps.
        bool hasFile = false;
        Time last{-1};
        bool isInteger = false;
    };

    void add(Column& column, Time time, const HostValue& value);
    void flush(Column& column) const;

    const Time origin;
    std::string directory;  ///< With its slash; empty for the current one.
    std::map<std::string, std::string> constants;
    std::map<std::string, Column> columns;
};

/// Returns a time as a scenario writes it: 2.5s.
std::string durationText(Time time);

/// Returns a text in double quotes.
std::string yamlText(const std::string& text);

}  // namespace com_tesk::recording
