#pragma once

#include <string>
#include <vector>

#include "tools/recording_tools/Reading.h"

namespace com_tesk::recording {

enum class Picture { SVG, PNG };

/// What gnuplot needs for a picture. It finds the values as the file `/dev/fd/3`.
struct Plot {
    std::string script;
    std::string values;
};

/// Draws the values of each name as steps, in a diagram of its own. Times without a connection are red. A name is grey from
/// the moment that it had no value for longer than a second and ten times its median interval, or that its connection was
/// lost, until its next value. Reads the recording twice. The memory depends on the number of names only.
/// @throws std::runtime_error  a name has no finite value in the recording, or there are too many names.
Plot plotOf(Reading& reading, const std::vector<std::string>& names, Picture picture);

}  // namespace com_tesk::recording
