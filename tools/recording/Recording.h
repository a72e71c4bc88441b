#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/recording/Entry.h"

namespace com_tesk::recording {

/// Reads the entries of a recording in order, from all of its files. Keeps one line in memory.
class Recording {
  public:
    /// Opens the file. When it belongs to a recording that was rotated, its older files come first, and they are part of
    /// the recording.
    /// @throws std::system_error    the file cannot be read.
    /// @throws std::runtime_error   the file is no recording; the text says why.
    explicit Recording(const std::string& file);
    ~Recording();
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    /// Returns the next entry; nothing at the end. Lines that cannot be read, and entries that are earlier than the one
    /// before, are left out and counted.
    std::optional<Entry> next();

    /// Begins again at the first entry.
    void rewind();

    const Header& header() const;

    /// Returns one text for each of the first ten lines that were left out, such as "log.jsonl:12: not JSON", and at the
    /// end how many more there were.
    std::vector<std::string> flaws() const;

    /// True when the first file that is there is not the first of the recording, because older ones were removed.
    bool isIncomplete() const;

  private:
    class Impl;
    std::unique_ptr<Impl> impl;
};

}  // namespace com_tesk::recording
