#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/Guarded.h"
#include "tools/service/LineLimit.h"

namespace com_tesk::service {

/// The levels of log lines, with the numbers that syslog and the journal give them.
enum class Level {
    ERROR = 3,    ///< Something does not work, and will not without help.
    WARNING = 4,  ///< Something did not work. The program goes on or tries again.
    NOTICE = 5,   ///< Normal, and worth knowing: a connection is established or lost.
    INFO = 6,     ///< Normal.
    DEBUG = 7,    ///< For the program's developers.
};

/// Returns "error", "warning", "notice", "info" or "debug".
const char* nameOf(Level level);

/// Writes log lines with levels.
///
/// When the lines go to the journal, each begins with its level as the journal expects it: `<4>text`. Otherwise the line
/// begins with its name: `warning: text`. Control characters are written as \xNN, so that no text of a peer can add a
/// line. A line is one write, unless it is longer than 4096 bytes.
///
/// When the reader of the stream does not read, a line waits for one second and is lost. Further lines are then lost at
/// once until the reader reads again. A line says how many.
///
/// Any thread may call every operation.
class Log {
  public:
    enum class Form {
        NAMES,    ///< `warning: text`
        JOURNAL,  ///< `<4>text`
    };

    /// Writes to standard error. The form is JOURNAL when standard error is connected to the journal: its device and
    /// inode are then those of `$JOURNAL_STREAM`.
    Log() : Log(2, formOf(2)) {}

    /// Writes to a descriptor, which stays the caller's.
    Log(int outputDescriptor, Form outputForm) : descriptor(outputDescriptor), form(outputForm) {}

    /// Writes a line, unless its level is less urgent than the least one.
    void write(Level level, const std::string& text);

    /// Writes a line, at most once a minute for each key. After a gap the line says how many were left out.
    void writeRarely(Level level, const std::string& key, const std::string& text);

    /// Sets the least urgent level that is written; INFO at the beginning. Before other threads use the log.
    void setLeast(Level level) { least = level; }

    /// Short names.
    /// @{
    void error(const std::string& text) { write(Level::ERROR, text); }
    void warning(const std::string& text) { write(Level::WARNING, text); }
    void notice(const std::string& text) { write(Level::NOTICE, text); }
    void info(const std::string& text) { write(Level::INFO, text); }
    void debug(const std::string& text) { write(Level::DEBUG, text); }
    /// @}

    /// Returns the form for the descriptor, from `$JOURNAL_STREAM`.
    static Form formOf(int descriptor);

  private:
    struct Loss {
        bool isBlocked = false;  // The last line was lost.
        std::uint64_t lines = 0;
    };

    std::string lineOf(Level level, const std::string& text) const;
    bool put(std::string_view line, std::chrono::milliseconds patience) const;

    const int descriptor;
    const Form form;
    Level least = Level::INFO;
    host::Guarded<Loss> loss;  // Locked during a write, so that lines are not mixed.
    host::Guarded<LineLimit> limit;
};

}  // namespace com_tesk::service
