#pragma once

#include <cstddef>
#include <vector>

#include "message/RawMessage.h"

namespace com_tesk {

/// A message that is filled repeatedly in the same memory.
class ReusableMessage : public RawMessage {
  public:
    explicit ReusableMessage(Type initialType = INVALID) : RawMessage(initialType) {}

    /// Empties the message and changes its type.
    void begin(Type newType) {
        clear();
        setType(newType);
    }

    /// Changes the type and keeps the bytes.
    void setType(Type newType) { type = newType; }

    /// Frees memory above 64 KiB, which one large message has needed. The bytes may be gone after this.
    void end() {
        constexpr std::size_t kLargestKept = 64U << 10U;
        if (capacity() > kLargestKept) {
            std::vector<char>().swap(*this);
        }
    }
};

}  // namespace com_tesk
