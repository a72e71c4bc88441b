#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace com_tesk::scenario {

/// The program that a scenario examines, in a process group of its own. The object ends it.
class Program {
  public:
    /// Starts it with this value of `CSX_HOST`. It inherits the standard streams, and no blocked signals.
    /// @throws std::system_error when it cannot be started.
    Program(const std::vector<std::string>& commandLine, const std::string& host);
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    /// Sends SIGTERM to the group, and SIGKILL when the program has not ended after `kPatience`. Blocks until then.
    ~Program();

    static constexpr std::chrono::seconds kPatience{3};

    /// Returns how it has ended, for people: "exit code 3"; nothing while it runs. Does not block.
    std::optional<std::string> ended();

  private:
    pid_t process = -1;
    std::optional<std::string> end;
};

}  // namespace com_tesk::scenario
