#pragma once

#include <string>

#include "tools/recording_tools/Reading.h"

namespace com_tesk::recording {

/// Writes a scenario for `cshost run`: the values of the host and its losses as recorded, and what the client registered
/// and published as expectations. Reads the recording twice. The memory depends on the number of names and losses only.
/// @throws std::system_error   a file cannot be written.
/// @throws std::runtime_error  nothing is recorded that a scenario could begin with.
void writeScenario(Reading& reading, const std::string& path);

}  // namespace com_tesk::recording
