#pragma once

#include <functional>
#include <string>

#include "tools/csx/Client.h"
#include "tools/csx/Record.h"

namespace CLI {  // NOLINT(readability-identifier-naming): the library's name
class App;
}  // namespace CLI

namespace com_tesk::csx {

/// The commands for recordings, and their options.
class RecordingCommands {
  public:
    using Command = std::function<ExitCode(Signals&)>;

    /// Adds them to `app`. When one is parsed, `target` becomes what runs it. All arguments and this object outlive the
    /// parsing.
    RecordingCommands(CLI::App& app, const CommonOptions& commonOptions, Command& target);
    RecordingCommands(const RecordingCommands&) = delete;
    RecordingCommands& operator=(const RecordingCommands&) = delete;
    ~RecordingCommands() = default;

  private:
    void addRecord(CLI::App& app);

    const CommonOptions& common;
    Command& command;
    RecordOptions recordOptions;
};

}  // namespace com_tesk::csx
