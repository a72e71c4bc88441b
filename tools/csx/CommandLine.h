#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/csx/Analysis.h"
#include "tools/csx/Commands.h"
#include "tools/csx/RecordingCommands.h"
#include "tools/replay/Options.h"

namespace CLI {  // NOLINT(readability-identifier-naming): the library's name
class App;
}  // namespace CLI

namespace com_tesk::csx {

/// The options and commands of the program.
class CommandLine {
  public:
    /// Adds them to `app`, which fills this object in when it parses. This object outlives the parsing.
    explicit CommandLine(CLI::App& app);
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;
    ~CommandLine() = default;

    /// Runs the command that was parsed.
    ExitCode run(Signals& signals) const { return command(signals); }

  private:
    void addCommonOptions(CLI::App& app);
    void addGet(CLI::App& app);
    void addPut(CLI::App& app);
    void addWatch(CLI::App& app);
    void addWait(CLI::App& app);
    void addInfo(CLI::App& app);
    void addDoctor(CLI::App& app);
    void addCompletion(CLI::App& app);

    CommonOptions common;
    std::vector<std::string> names;
    PutOptions putOptions;
    WatchOptions watchOptions;
    WaitOptions waitOptions;
    DoctorOptions doctorOptions;
    replay::Options replayOptions;
    AnalysisOptions analysisOptions;
    std::string shell;
    std::function<ExitCode(Signals&)> command;
    std::unique_ptr<RecordingCommands> recordingCommands;
};

}  // namespace com_tesk::csx
