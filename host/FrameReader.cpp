#include "host/FrameReader.h"

#include <algorithm>
#include <utility>

namespace com_tesk::host {

using namespace layout;

std::vector<Frame> FrameReader::feed(const std::uint8_t* data, std::size_t size) {
    std::vector<Frame> frames;
    while (size > 0 && m_error.empty()) {
        const std::size_t taken = m_headerSize < kHeaderSize ? takeHeader(data, size) : takeBody(data, size);
        data += taken;
        size -= taken;
        if (m_error.empty() && m_headerSize == kHeaderSize && m_frame.body.size() == m_bodySize) {
            frames.push_back(std::exchange(m_frame, Frame{}));
            m_headerSize = 0;
        }
    }
    return frames;
}

std::size_t FrameReader::takeHeader(const std::uint8_t* data, std::size_t size) {
    const std::size_t taken = std::min(size, kHeaderSize - m_headerSize);
    std::copy_n(data, taken, m_header.begin() + static_cast<std::ptrdiff_t>(m_headerSize));
    m_headerSize += taken;
    if (m_headerSize == kHeaderSize) {
        checkHeader();
    }
    return taken;
}

void FrameReader::checkHeader() {
    const std::uint32_t headerLength = wordFrom(m_header.data() + kHeaderLengthOffset);
    const std::uint32_t frameLength = wordFrom(m_header.data() + kFrameLengthOffset);
    if (headerLength != kHeaderSize) {
        m_error = "header length is " + std::to_string(headerLength) + ", not 32";
    } else if (frameLength < kHeaderSize) {
        m_error = "frame length " + std::to_string(frameLength) + " is less than its header";
    } else if (frameLength > kMaxFrameLength) {
        m_error = "frame length " + std::to_string(frameLength) + " is more than 16 MiB";
    } else {
        m_frame.kind = wordFrom(m_header.data() + kFrameKindOffset);
        m_bodySize = frameLength - kHeaderSize;
    }
}

std::size_t FrameReader::takeBody(const std::uint8_t* data, std::size_t size) {
    Bytes& body = m_frame.body;
    const std::size_t taken = std::min(size, m_bodySize - body.size());
    makeRoom(taken);
    body.insert(body.end(), data, data + taken);
    return taken;
}

void FrameReader::makeRoom(std::size_t bytes) {
    // Doubling, so that a long body is not copied for each piece, but never past what was
    // announced. Neither sum can overflow: both terms are at most kMaxFrameLength.
    Bytes& body = m_frame.body;
    const std::size_t needed = body.size() + bytes;
    if (needed > body.capacity()) {
        body.reserve(std::min(m_bodySize, std::max(needed, 2 * body.capacity())));
    }
}

}  // namespace com_tesk::host
