#pragma once

#include <functional>

#include "tools/csx/Commands.h"
#include "tools/replay/Options.h"

namespace CLI {  // NOLINT(readability-identifier-naming): the library's name
class App;
}  // namespace CLI

namespace com_tesk::csx {

/// Adds the command `replay`, whose exit codes are those of `replay::Result`.
/// @param common   the options before the command; read when the command runs.
/// @param options  receives those of the command.
/// @param command  receives what runs it. All of them outlive the parsing.
void addReplay(CLI::App& app, const CommonOptions& common, replay::Options& options,
               std::function<ExitCode(Signals&)>& command);

}  // namespace com_tesk::csx
