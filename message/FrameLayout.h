#pragma once

// The frame that carries every message on the wire: a header of 32 bytes, then the body. All words are big-endian.
//
//   offset  0        4        8        12         16               31        32
//          +--------+--------+--------+----------+----------------+---------+--------
//          | frame  | header | kind   | sub-kind | filler         | end     | body ...
//          | length | length |        |          | 15 x FF        | mark    |
//          +--------+--------+--------+----------+----------------+---------+--------
//   data             32       0        0                            FF
//   control          32       3        2                            FE
//
// The frame length counts header and body. A receiver reads the two lengths and the kind and ignores the rest.
// Bytes 4 to 7 of a data message's body also hold the body's length.

namespace com_tesk::frame {

constexpr unsigned int kHeaderLength = 32;

constexpr unsigned int kFrameLengthOffset = 0;
constexpr unsigned int kHeaderLengthOffset = 4;
constexpr unsigned int kKindOffset = 8;
constexpr unsigned int kSubKindOffset = 12;
constexpr unsigned int kEndMarkOffset = 31;

constexpr unsigned int kKindData = 0;
constexpr unsigned int kKindControl = 3;
constexpr unsigned int kSubKindControl = 2;
constexpr unsigned char kEndMarkControl = 0xFE;

/// The header of a data message, without the frame length.
inline constexpr unsigned char kDataHeader[kHeaderLength] = {
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x20, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
};

/// Offset, from the start of the frame, of the length in a data message's body.
constexpr unsigned int kBodyLengthOffset = kHeaderLength + 4;

}  // namespace com_tesk::frame
