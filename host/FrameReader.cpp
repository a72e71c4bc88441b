#include "host/FrameReader.h"

#include <algorithm>
#include <utility>

namespace com_tesk::host {

using namespace layout;

std::vector<Frame> FrameReader::feed(const std::uint8_t* data, std::size_t size) {
    std::vector<Frame> frames;
    while (size > 0 && errorText.empty()) {
        const std::size_t taken = headerSize < kHeaderSize ? takeHeader(data, size) : takeBody(data, size);
        data += taken;
        size -= taken;
        if (errorText.empty() && headerSize == kHeaderSize && frame.body.size() == bodySize) {
            frames.push_back(std::exchange(frame, Frame{}));
            headerSize = 0;
        }
    }
    return frames;
}

std::size_t FrameReader::takeHeader(const std::uint8_t* data, std::size_t size) {
    const std::size_t taken = std::min(size, kHeaderSize - headerSize);
    std::copy_n(data, taken, header.begin() + static_cast<std::ptrdiff_t>(headerSize));
    headerSize += taken;
    if (headerSize == kHeaderSize) {
        checkHeader();
    }
    return taken;
}

void FrameReader::checkHeader() {
    const std::uint32_t headerLength = wordFrom(header.data() + kHeaderLengthOffset);
    const std::uint32_t frameLength = wordFrom(header.data() + kFrameLengthOffset);
    if (headerLength != kHeaderSize) {
        errorText = "header length is " + std::to_string(headerLength) + ", not 32";
    } else if (frameLength < kHeaderSize) {
        errorText = "frame length " + std::to_string(frameLength) + " is less than its header";
    } else if (frameLength > kMaxFrameLength) {
        errorText = "frame length " + std::to_string(frameLength) + " is more than 16 MiB";
    } else {
        frame.kind = wordFrom(header.data() + kFrameKindOffset);
        bodySize = frameLength - kHeaderSize;
    }
}

std::size_t FrameReader::takeBody(const std::uint8_t* data, std::size_t size) {
    Bytes& body = frame.body;
    const std::size_t taken = std::min(size, bodySize - body.size());
    makeRoom(taken);
    body.insert(body.end(), data, data + taken);
    return taken;
}

void FrameReader::makeRoom(std::size_t bytes) {
    // Doubling avoids a copy of a long body for each piece. The announced length is the limit. Neither sum can
    // overflow: all terms are at most kMaxFrameLength.
    Bytes& body = frame.body;
    const std::size_t needed = body.size() + bytes;
    if (needed > body.capacity()) {
        body.reserve(std::min(bodySize, std::max(needed, 2 * body.capacity())));
    }
}

}  // namespace com_tesk::host
