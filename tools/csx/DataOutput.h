#pragma once

#include <string_view>

namespace com_tesk::csx {

class Signals;

/// The reader of standard output has closed it.
struct OutputClosed {};

/// SIGINT or SIGTERM has arrived.
struct Interrupted {
    int signal = 0;
};

/// Writes lines to standard output. Each line is handed to the system at once.
class DataOutput {
  public:
    /// @param stopSignals  outlives this object.
    explicit DataOutput(Signals& stopSignals) : signals(stopSignals) {}

    /// Writes a line and its line feed. Blocks while the reader reads nothing, until a signal arrives.
    /// @throw OutputClosed
    /// @throw Interrupted
    /// @throw std::system_error  the system refused, as with a full disk.
    void line(std::string_view text);

    /// Writes bytes of any kind. Otherwise as `line`.
    void bytes(std::string_view bytes) { write(bytes); }

    /// True when standard output is a terminal for which colours are not switched off.
    static bool hasColours();

  private:
    void write(std::string_view bytes);

    Signals& signals;
};

}  // namespace com_tesk::csx
