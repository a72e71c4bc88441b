#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace com_tesk::host_test {

/// A program under test, with both its output streams in our hands.
class ChildProcess {
  public:
    /// Starts it. @param arguments  without the program's own name.
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
    /// Kills what is still running.
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Reads standard output up to a line that has this in it. @return that line; empty when the
    /// output or patience ends first.
    std::string lineWith(const std::string& part);

    /// Everything that is still to come, up to the end of the stream.
    std::string restOfOutput();
    std::string restOfErrors();

    void signal(int number);

    /// Waits for the end; what the streams held stays to be read. @return the exit code; nothing
    /// when it was ended by a signal, or patience ends first.
    std::optional<int> exitCode();

  private:
    struct Stream {
        int descriptor = -1;
        std::string buffer;
        bool ended = false;
    };
    bool readMore(Stream& stream);
    std::string rest(Stream& stream);

    pid_t pid = -1;
    bool reaped = false;
    Stream output;
    Stream errors;
};

}  // namespace com_tesk::host_test
