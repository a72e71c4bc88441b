#pragma once

#include <string>
#include <vector>

#include "tools/csmqtt/Config.h"
#include "tools/scenario/Flaws.h"

namespace com_tesk::mqtt {

/// Reads the text of a configuration file, and checks that the files which it names can be read.
/// @param directory  of the file. Relative paths of other files begin there; that of a password file begins at
///                   `$CREDENTIALS_DIRECTORY` when the service manager has put such a file there.
/// @param flaws      gets everything that is wrong, in the order of the lines. The result is of use only without any.
Config readConfig(const std::string& text, const std::string& directory, std::vector<scenario::Flaw>& flaws);

/// Reads a file. A file that cannot be read is a flaw.
Config readConfigFile(const std::string& path, std::vector<scenario::Flaw>& flaws);

/// Returns `PATH:LINE:COLUMN: text`, or `PATH: text` without a line.
std::string flawText(const std::string& path, const scenario::Flaw& flaw);

}  // namespace com_tesk::mqtt
