#ifndef TESTS_MESSAGE_MESSAGEOF_H
#define TESTS_MESSAGE_MESSAGEOF_H

#include <string>

#include "message/RawMessage.h"
#include "tests/support/Hex.h"

namespace com_tesk {
namespace test {

/// A data message of these bytes. It is filled through the vector, so it needs none of the operations under test.
inline RawMessage messageOf(const std::string& hexBytes) {
    const Bytes bytes = hex(hexBytes);
    RawMessage message(RawMessage::DATA);
    message.insert(message.end(), bytes.begin(), bytes.end());
    return message;
}

}  // namespace test
}  // namespace com_tesk

#endif
