#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tools/recording/Entry.h"
#include "tools/recording/KnownState.h"

namespace com_tesk::recording {

/// Where and how a recording is written.
struct RecordingOptions {
    std::string file;
    std::uint64_t rotateSize = 0;                           ///< Begins a new file after so many bytes; 0 is never.
    std::optional<std::chrono::microseconds> rotateTime{};  ///< Begins a new file after this time.
    unsigned keep = 0;                                      ///< Files to keep, with the current one; 0 is all.
    std::chrono::microseconds sync{1'000'000};              ///< Writes to the disk at least so often.
};

/// Writes entries to the files of a recording. A failure to write drops lines and is reported once; the writer tries
/// again every second. One thread at a time; writes block as the disk does.
class RecordingFile {
  public:
    using Say = std::function<void(const std::string& line)>;

    /// Creates the file and writes its header.
    /// @param say  receives the lines for the user: about failures, and their end.
    /// @throws std::system_error  the file is there already, or cannot be created.
    RecordingFile(RecordingOptions recordingOptions, Header recordingHeader, Say sayToUser);
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    /// Appends an entry, after a state line or at the head of a new file when it is time for that. An entry that is
    /// earlier than the one before gets its time.
    void add(Entry entry);

    /// Writes what is buffered, and lets the disk store it when it is time for that. Call it at least every 100 ms.
    void flush(Time now);

    /// Writes the last line and lets the disk store everything.
    void end(Time now);

  private:
    void append(const Entry& entry);
    void appendState();
    void appendHead();
    /// Creates the file. Returns the error number.
    int create();
    void rotate();
    void removeOldFiles() const;
    void syncDirectory() const;
    void write();
    void fail(int error);
    /// Removes what follows the last whole line.
    bool cutPartOfLine() const;
    void tryAgain(Time now);

    RecordingOptions options;
    Say say;
    Header header;
    KnownState known;
    int descriptor = -1;
    std::string text;              // lines that are not written yet
    std::uint64_t lines = 0;       // in `text`
    std::uint64_t fileSize = 0;    // the whole lines that were written
    std::uint64_t sizeOfPart = 0;  // since the last rotation, with the lines that are not written yet
    Time latest{};
    Time fileBegan{};
    Time lastState{};
    Time lastSync{};
    Time lastAttempt{};
    bool isDirty = false;
    bool hasFailed = false;
    int failure = 0;
    std::uint64_t dropped = 0;  // since the last failure
};

/// Returns why a recording cannot be written to this file; an empty text when it can. Files are never overwritten.
std::string fileError(const std::string& file);

}  // namespace com_tesk::recording
