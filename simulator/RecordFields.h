#pragma once

#include <cstring>
#include <string>
#include <utility>

#include "client/CSClient.h"
#include "message/RawMessage.h"
#include "simulator/MessageLayout.h"

namespace com_tesk {
namespace layout {

/// The text of a zero-padded field that lies inside the message: up to its first zero byte, or all of it.
inline std::string textAt(const RawMessage& message, std::size_t offset, std::size_t fieldLength) {
    const char* const field = message.data() + offset;
    return {field, strnlen(field, fieldLength)};
}

/// The value of a record, by the integer flag beside it.
inline CSClient::Parameter valueAt(const RawMessage& message, unsigned int flagOffset, unsigned int valueOffset,
                                   std::string name) {
    CSClient::Parameter parameter;
    parameter.name = std::move(name);
    if (message.getDoubleWord(flagOffset) != 0) {
        parameter.type = CSClient::TYPE_INT;
        parameter.value.asInt = message.getInt(valueOffset);
    } else {
        parameter.type = CSClient::TYPE_FLOAT;
        parameter.value.asFloat = message.getFloat(valueOffset);
    }
    return parameter;
}

}  // namespace layout
}  // namespace com_tesk
