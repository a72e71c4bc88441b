#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/Bytes.h"
#include "host/Layout.h"

namespace com_tesk::host {

struct Frame {
    std::uint32_t kind = 0;  ///< The kind word as received; requests have layout::kDataFrame.
    Bytes body;              ///< The bytes after the frame header; may be empty.
};

/// Cuts a byte stream, fed in pieces of any size, into frames.
///
/// Memory: a frame takes at most its announced length, which is at most layout::kMaxFrameLength. The memory is
/// allocated when bytes arrive, not when they are announced. No socket, no clock; one thread at a time.
class FrameReader {
  public:
    /// Reads the next piece of the stream.
    /// @return the frames that this piece completes, in order, including the frames before an error.
    std::vector<Frame> feed(const std::uint8_t* data, std::size_t size);

    /// Returns why the stream cannot be read further, or an empty text. After an error feed() ignores its input,
    /// because the start of the next frame is unknown.
    const std::string& error() const { return errorText; }

    /// True when some bytes of a frame have arrived, but not all.
    bool inMidFrame() const { return headerSize != 0; }

  private:
    std::size_t takeHeader(const std::uint8_t* data, std::size_t size);
    std::size_t takeBody(const std::uint8_t* data, std::size_t size);
    void checkHeader();
    void makeRoom(std::size_t bytes);

    std::array<std::uint8_t, layout::kHeaderSize> header{};
    std::size_t headerSize = 0;  // bytes of `header` that have arrived; all while a body is read
    std::size_t bodySize = 0;    // announced; valid once the header is complete
    Frame frame;
    std::string errorText;
};

}  // namespace com_tesk::host
