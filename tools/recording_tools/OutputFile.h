#pragma once

#include <string>
#include <string_view>

namespace com_tesk::recording {

/// Returns true for a path that is there and names no regular file. Opening it, reading and writing may block.
bool isPipeOrDevice(const std::string& path);

/// A file that gets its name when it is complete, so that a failure leaves an earlier file of this name as it was. Devices
/// and pipes are written to directly.
class OutputFile {
  public:
    /// Blocks while a pipe has no reader.
    /// @throws std::system_error  the file cannot be created.
    explicit OutputFile(std::string path);
    /// Removes what is incomplete.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Appends.
    /// @throws std::system_error  the system refused, as with a full disk.
    void write(std::string_view bytes);

    /// Gives the file its name.
    /// @throws std::system_error
    void complete();

    /// Returns the descriptor, for a program that writes the file.
    int descriptor() const { return file; }

  private:
    [[noreturn]] void fail() const;

    const std::string name;
    std::string partialName;  ///< Empty for a device, and when the file is complete.
    int file = -1;
};

}  // namespace com_tesk::recording
