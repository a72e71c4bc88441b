#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/recording/Entry.h"
#include "tools/replay/Options.h"

namespace com_tesk::replay {

/// Values under the names of the replay.
using Values = std::vector<std::pair<std::string, HostValue>>;

/// Which recorded names a replay uses, and how they are called in it.
class Selection {
  public:
    explicit Selection(const Options& options);

    /// Returns the name in the replay; nothing when the name is left out.
    std::optional<std::string> nameOf(const std::string& recorded) const;

    /// Returns the recorded name of a name in the replay.
    std::string recordedNameOf(const std::string& name) const;

    /// Returns those of the values that the replay uses.
    Values of(const std::vector<recording::NamedValue>& recorded) const;

  private:
    const Options& options;
    std::map<std::string, std::string> back;
};

}  // namespace com_tesk::replay
