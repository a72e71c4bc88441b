#pragma once

#include <string>
#include <vector>

#include "host/Scenario.h"

namespace com_tesk::scenario {

/// A scenario that was played, for the report.
struct Played {
    std::string name;
    std::string file;
    ScenarioVerdict verdict;
    /// Why it could not be played to its end; empty when it was.
    std::string error;
};

/// Returns the report as XML in the form of JUnit: a suite for each scenario, with a case for each expectation.
std::string junitOf(const std::vector<Played>& played);

}  // namespace com_tesk::scenario
