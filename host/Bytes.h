#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Big-endian numbers and padded text in byte buffers. These functions do not check a peer's number: callers compare it
/// with the buffer's size first.

namespace com_tesk::host {

using Bytes = std::vector<std::uint8_t>;

/// Returns the 32-bit word at `data[0..3]`.
inline std::uint32_t wordFrom(const std::uint8_t* data) {
    return (std::uint32_t{data[0]} << 24) | (std::uint32_t{data[1]} << 16) | (std::uint32_t{data[2]} << 8) |
           std::uint32_t{data[3]};
}

/// Returns the 32-bit word at `offset`. The caller checks that the four bytes exist.
inline std::uint32_t wordAt(const Bytes& bytes, std::size_t offset) {
    assert(bytes.size() >= 4 && offset <= bytes.size() - 4);
    return wordFrom(bytes.data() + offset);
}

/// Returns the text of the `width` bytes at `offset`: up to the first zero byte, or all of them without a zero byte.
inline std::string textAt(const Bytes& bytes, std::size_t offset, std::size_t width) {
    assert(bytes.size() >= width && offset <= bytes.size() - width);
    std::string text;
    for (std::size_t i = 0; i < width && bytes[offset + i] != 0; ++i) {
        text.push_back(static_cast<char>(bytes[offset + i]));
    }
    return text;
}

inline void appendWord(Bytes& bytes, std::uint32_t word) {
    bytes.push_back(static_cast<std::uint8_t>(word >> 24));
    bytes.push_back(static_cast<std::uint8_t>((word >> 16) & 0xFFU));
    bytes.push_back(static_cast<std::uint8_t>((word >> 8) & 0xFFU));
    bytes.push_back(static_cast<std::uint8_t>(word & 0xFFU));
}

/// Appends `width` bytes: the text, cut to the width, then zero bytes.
inline void appendText(Bytes& bytes, std::string_view text, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) {
        bytes.push_back(i < text.size() ? static_cast<std::uint8_t>(text[i]) : std::uint8_t{0});
    }
}

}  // namespace com_tesk::host
