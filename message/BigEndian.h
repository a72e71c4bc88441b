#pragma once

#include <cstdint>
#include <cstring>

/// Reads and writes numbers in wire order, most significant byte first. The caller has checked that the bytes are
/// there.
namespace com_tesk::big_endian {

/// Returns the two bytes at `at` as a number.
inline std::uint16_t halfWordAt(const char* at) {
    unsigned char bytes[2];
    std::memcpy(bytes, at, sizeof bytes);
    return static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
}

/// Returns the four bytes at `at` as a number.
inline std::uint32_t wordAt(const char* at) {
    unsigned char bytes[4];
    std::memcpy(bytes, at, sizeof bytes);
    return std::uint32_t{bytes[0]} << 24U | std::uint32_t{bytes[1]} << 16U | std::uint32_t{bytes[2]} << 8U |
           std::uint32_t{bytes[3]};
}

/// Writes `word` as four bytes.
/// @return the position after them.
inline char* putWord(char* at, std::uint32_t word) {
    const unsigned char bytes[4] = {static_cast<unsigned char>(word >> 24U), static_cast<unsigned char>(word >> 16U),
                                    static_cast<unsigned char>(word >> 8U), static_cast<unsigned char>(word)};
    std::memcpy(at, bytes, sizeof bytes);
    return at + sizeof bytes;
}

}  // namespace com_tesk::big_endian
