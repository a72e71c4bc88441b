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
    std::uint32_t kind = 0;  ///< the kind word as it came; requests have layout::kDataFrame
    Bytes body;              ///< what follows the frame header; may be empty
};

/// Cuts a byte stream, fed in pieces of any size, into frames.
///
/// Memory: never more than the frame's announced length is held for it, that length is at most
/// layout::kMaxFrameLength, and room is made as bytes arrive rather than when they are announced. No socket, no
/// clock; one thread at a time.
class FrameReader {
  public:
    /// Takes the next piece of the stream.
    /// @return the frames that this piece completes, in order; those in front of an error are returned too.
    std::vector<Frame> feed(const std::uint8_t* data, std::size_t size);

    /// Why the stream is lost, or empty. Once it is lost, feed() takes nothing more: where the next frame would
    /// begin cannot be known.
    const std::string& error() const { return errorText; }

    /// Some bytes of a frame have come, but not all of them.
    bool inMidFrame() const { return headerSize != 0; }

  private:
    std::size_t takeHeader(const std::uint8_t* data, std::size_t size);
    std::size_t takeBody(const std::uint8_t* data, std::size_t size);
    void checkHeader();
    void makeRoom(std::size_t bytes);

    std::array<std::uint8_t, layout::kHeaderSize> header{};
    std::size_t headerSize = 0;  // bytes of `header` that have come; all of them while a body is read
    std::size_t bodySize = 0;    // announced; valid once the header is whole
    Frame frame;
    std::string errorText;
};

}  // namespace com_tesk::host
