#pragma once

#include <cstdint>
#include <cstring>

/// Numbers as they travel, most significant byte first, where the caller has made sure that the bytes are there.
namespace com_tesk::big_endian {

/// The two bytes at `at`.
inline std::uint16_t halfWordAt(const char* at) {
    unsigned char bytes[2];
    std::memcpy(bytes, at, sizeof bytes);
    return static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
}

/// The four bytes at `at`.
inline std::uint32_t wordAt(const char* at) {
    unsigned char bytes[4];
    std::memcpy(bytes, at, sizeof bytes);
    return std::uint32_t{bytes[0]} << 24U | std::uint32_t{bytes[1]} << 16U | std::uint32_t{bytes[2]} << 8U |
           std::uint32_t{bytes[3]};
}

/// Writes four bytes.
/// @return the place behind them.
inline char* putWord(char* at, std::uint32_t word) {
    const unsigned char bytes[4] = {static_cast<unsigned char>(word >> 24U), static_cast<unsigned char>(word >> 16U),
                                    static_cast<unsigned char>(word >> 8U), static_cast<unsigned char>(word)};
    std::memcpy(at, bytes, sizeof bytes);
    return at + sizeof bytes;
}

}  // namespace com_tesk::big_endian
