#pragma once

#include <chrono>
#include <cstdint>

/// Times of recordings. cppcheck does not know literals such as 20ms in comparisons.
namespace com_tesk::test {

constexpr std::chrono::microseconds us(std::int64_t count) {
    return std::chrono::microseconds(count);
}
constexpr std::chrono::microseconds ms(std::int64_t count) {
    return std::chrono::milliseconds(count);
}
constexpr std::chrono::microseconds seconds(std::int64_t count) {
    return std::chrono::seconds(count);
}

}  // namespace com_tesk::test
