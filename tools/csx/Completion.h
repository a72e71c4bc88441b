#pragma once

#include <string>

#include "tools/csx/ExitCode.h"

namespace com_tesk::csx {

class Signals;

/// Prints the completion script of "bash", "zsh" or "fish".
ExitCode completion(const std::string& shell, Signals& signals);

}  // namespace com_tesk::csx
