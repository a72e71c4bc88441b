#pragma once

#include <string>
#include <vector>

#include "host/HostOptions.h"
#include "host/Scenario.h"
#include "tools/scenario/Flaws.h"

namespace com_tesk::scenario {

/// A scenario file: what to play, and the host to play it on.
struct ScenarioFile {
    Scenario scenario;
    HostOptions host;
};

/// Reads the text of a scenario file, and the files that it names.
/// @param directory  of the file; the other files are looked for there.
/// @param flaws      gets everything that is wrong. The result is of use only without any.
ScenarioFile readScenario(const std::string& text, const std::string& directory, std::vector<Flaw>& flaws);

/// Reads a file. A file that cannot be read is a flaw.
ScenarioFile readScenarioFile(const std::string& path, std::vector<Flaw>& flaws);

}  // namespace com_tesk::scenario
