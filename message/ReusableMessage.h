#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "message/BigEndian.h"
#include "message/RawMessage.h"

namespace com_tesk {

/// A message that is filled over and over in the same memory.
class ReusableMessage : public RawMessage {
  public:
    explicit ReusableMessage(Type initialType = INVALID) : RawMessage(initialType) {}

    /// Makes it an empty message of that type.
    void begin(Type newType) {
        clear();
        setType(newType);
    }

    /// Changes the type and keeps the bytes.
    void setType(Type newType) { type = newType; }

    /// As `getDoubleWord`, and quicker where all four bytes are there.
    std::uint32_t wordAt(std::size_t index) const {
        return size() >= 4 && index <= size() - 4 ? big_endian::wordAt(data() + index)
                                                  : getDoubleWord(static_cast<unsigned int>(index));
    }

    /// Gives back what one huge message has needed. Its bytes may be gone after this.
    void end() {
        constexpr std::size_t kLargestKept = 64U << 10U;
        if (capacity() > kLargestKept) {
            std::vector<char>().swap(*this);
        }
    }
};

}  // namespace com_tesk
