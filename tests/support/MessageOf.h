#pragma once

#include <string>

#include "message/RawMessage.h"
#include "tests/support/Hex.h"

namespace com_tesk::test {

/// Returns a message of these bytes. It is filled through the vector, so it needs no operation under test.
/// @{
inline RawMessage messageOf(const Bytes& bytes, RawMessage::Type type = RawMessage::DATA) {
    RawMessage message(type);
    message.insert(message.end(), bytes.begin(), bytes.end());
    return message;
}
inline RawMessage messageOf(const std::string& hexBytes, RawMessage::Type type = RawMessage::DATA) {
    return messageOf(hex(hexBytes), type);
}
/// @}

}  // namespace com_tesk::test
