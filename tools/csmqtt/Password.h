#pragma once

#include <string>

namespace com_tesk::mqtt {

/// Returns the first line of the file, without the line feed.
/// @throw std::runtime_error  the file cannot be read, or other users can access it.
std::string readPassword(const std::string& path);

}  // namespace com_tesk::mqtt
