#pragma once

#include <string>

#include "message/RawMessage.h"
#include "tests/support/Hex.h"

namespace com_tesk::test {

/// Returns a data message of these bytes. It is filled through the vector, so it needs no operation under test.
inline RawMessage messageOf(const std::string& hexBytes) {
    const Bytes bytes = hex(hexBytes);
    RawMessage message(RawMessage::DATA);
    message.insert(message.end(), bytes.begin(), bytes.end());
    return message;
}

}  // namespace com_tesk::test
