#pragma once

#include <optional>
#include <string>

namespace com_tesk::csx {

/// Reads the lines of a descriptor as they come.
class Lines {
  public:
    explicit Lines(int readDescriptor) : descriptor(readDescriptor) {}

    /// Reads what is there, once. Blocks when nothing is.
    void read();

    /// Returns the next whole line without its line feed and a carriage return before it. At the end of the input, also
    /// a last line without a line feed.
    std::optional<std::string> next();

    /// True when a line is there, or the input has ended.
    bool isReady() const { return hasEnded || bytes.find('\n', begin) != std::string::npos; }

    /// True when the input has ended. Lines may still be there.
    bool isOver() const { return hasEnded; }

  private:
    const int descriptor;
    std::string bytes;
    std::size_t begin = 0;
    bool hasEnded = false;
};

}  // namespace com_tesk::csx
