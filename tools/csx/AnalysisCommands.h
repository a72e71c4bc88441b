#pragma once

#include <functional>

#include "tools/csx/Analysis.h"

namespace CLI {  // NOLINT(readability-identifier-naming): the library's name
class App;
}  // namespace CLI

namespace com_tesk::csx {

/// Adds the commands `convert`, `plot` and `stats`.
/// @param common   the options before the command; read when the command runs.
/// @param options  receives those of the command.
/// @param command  receives what runs it. All of them outlive the parsing.
void addAnalysis(CLI::App& app, const CommonOptions& common, AnalysisOptions& options,
                 std::function<ExitCode(Signals&)>& command);

}  // namespace com_tesk::csx
