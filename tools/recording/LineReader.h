#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace com_tesk::recording {

/// Reads a file line by line. Its memory is proportional to the longest line that it returns.
class LineReader {
  public:
    static constexpr std::size_t kMaxLineSize = std::size_t{64} * 1024 * 1024;

    /// @throws std::system_error   the file cannot be opened or is a directory.
    /// @throws std::runtime_error  the file is a pipe or a device, which could block.
    explicit LineReader(const std::string& file);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    struct Line {
        std::string_view text;   ///< Without its line feed; valid until the next call. Cut after kMaxLineSize bytes.
        bool isWhole = true;     ///< False for the last line of a file when it has no line feed.
        bool isTooLong = false;  ///< True when more than kMaxLineSize bytes were left out or cut.
    };

    /// Returns the next line; nothing at the end, and when the file cannot be read further.
    std::optional<Line> next();

    /// Returns the number of the line that `next` has returned, counted from 1.
    std::uint64_t number() const { return lineNumber; }

  private:
    bool fill();

    int descriptor = -1;
    std::vector<char> block;
    std::size_t position = 0;
    std::size_t filled = 0;
    std::string longLine;
    std::uint64_t lineNumber = 0;
};

}  // namespace com_tesk::recording
