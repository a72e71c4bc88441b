#pragma once

#include <cstdint>

namespace com_tesk {

/// A value with the type in which the host sent it. For programs that do not know the types of their inputs, such as
/// tools and recorders: see `Input`.
struct Number {
    bool isInteger = false;    ///< True when the host sent an integer, false for a float.
    float real = 0.0F;         ///< The value; of an integer, the nearest float.
    std::int32_t integer = 0;  ///< The value; of a float, the nearest integer, and 0 for what is no number.
};

}  // namespace com_tesk
