#pragma once

#include <algorithm>

#include "message/FrameLayout.h"
#include "message/RawMessage.h"

namespace com_tesk {

/// Tracks a stream of frames that is read header first: whether the next byte belongs to a frame that has begun. One
/// thread.
class FrameProgress {
  public:
    void reset() { missingBodyBytes = 0; }

    /// Reports that the reader got `count` bytes of the stream: the last ones of `message`.
    void delivered(const RawMessage& message, unsigned int count) {
        if (missingBodyBytes > 0) {
            missingBodyBytes -= std::min(missingBodyBytes, count);
        } else if (count == frame::kHeaderLength) {
            const auto header = static_cast<unsigned int>(message.size() - count);
            const unsigned int frameLength = message.getDoubleWord(header + frame::kFrameLengthOffset);
            missingBodyBytes = frameLength > frame::kHeaderLength ? frameLength - frame::kHeaderLength : 0;
        }
    }

    /// True when a header has been read and its body has not.
    bool isInsideBody() const { return missingBodyBytes > 0; }

  private:
    unsigned int missingBodyBytes = 0;
};

}  // namespace com_tesk
