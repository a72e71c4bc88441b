#pragma once

#include <cstddef>
#include <cstdint>

/// The layout of all messages, as the host reads and writes them. All words are big-endian and 32 bits wide unless a
/// width is given. Offsets in the drawings are decimal.

namespace com_tesk::host::layout {

// ---- Frame: contains every message, in both directions --------------------------------------------------------
//
//   0              4               8          12         16               31         32
//   +--------------+---------------+----------+----------+----------------+----------+------
//   | frame length | header length | kind     | sub-kind | filler         | end mark | body
//   | of both      | always 32     | 0 data   | 0        | 15 bytes of FF | FF       | ...
//   +--------------+---------------+----------+----------+----------------+----------+------
//
// The frame length counts the header and the body. The host does not read sub-kind, filler and end mark.

constexpr std::size_t kFrameLengthOffset = 0;
constexpr std::size_t kHeaderLengthOffset = 4;
constexpr std::size_t kFrameKindOffset = 8;
constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kFillerSize = 16;  // including the end mark, which is also FF in data frames
constexpr std::uint8_t kFiller = 0xFF;
constexpr std::uint32_t kDataFrame = 0;

/// The maximum length, including the header, that a client may announce for a frame.
constexpr std::uint32_t kMaxFrameLength = 16U * 1024U * 1024U;

// ---- Sub-header: the first 12 bytes of every body -------------------------------------------------------------
//
//   0    1    2         4              8         10     11     12
//   +----+----+---------+--------------+---------+------+------+---------------
//   | 04 | 02 | 7F FF   | body length  | 00 7F   | flag | code | simulator word
//   +----+----+---------+--------------+---------+------+------+---------------
//
// The flag is 00 in requests and in the host's updates, and 01 in its replies. The upper 16 bits of the simulator word
// are the simulator id.

constexpr std::size_t kProtocolOffset = 0;
constexpr std::size_t kSubprotocolOffset = 1;
constexpr std::size_t kBodyLengthOffset = 4;
constexpr std::size_t kFlagOffset = 10;
constexpr std::size_t kCodeOffset = 11;
constexpr std::size_t kSubHeaderSize = 12;
constexpr std::size_t kSimulatorOffset = 12;
constexpr unsigned kSimulatorShift = 16;

constexpr std::uint8_t kProtocol = 0x04;
constexpr std::uint8_t kSubprotocol = 0x02;
constexpr std::uint32_t kProtocolWord = 0x04027FFF;
constexpr std::uint32_t kReplyWord = 0x007F0100;   // combined with the code
constexpr std::uint32_t kUpdateWord = 0x007F0003;  // flag 00, code 03

constexpr std::uint8_t kRequestFlag = 0x00;
constexpr std::uint8_t kSubscribeInputs = 0x01;
constexpr std::uint8_t kRegisterOutputs = 0x02;
constexpr std::uint8_t kPublish = 0x03;
constexpr std::uint8_t kUnsubscribeInputs = 0x04;
constexpr std::uint8_t kUnregisterOutputs = 0x05;
constexpr std::uint8_t kVersion = 0x06;

// ---- Requests: sub-header, simulator word, then ---------------------------------------------------------------
//
//   version       16 zero
//   inputs        16 count   20 records of 44:  0 rate, 4 same rate, 8 integer flag, 12 name (32)
//   outputs       16 count   20 records of 40:  0 rate, 4 integer flag, 8 name (32)
//   publish       16 mode    20 count   24 records of 12:  0 id, 4 integer flag, 8 value
//   unsubscribe   16 count   20 records of  4:  0 id
//   unregister    16 count   20 records of  4:  0 id

constexpr std::size_t kVersionRequestSize = 20;

constexpr std::size_t kCountOffset = 16;
constexpr std::size_t kRecordsOffset = 20;
constexpr std::size_t kPublishCountOffset = 20;
constexpr std::size_t kPublishRecordsOffset = 24;

constexpr std::size_t kNameSize = 32;

constexpr std::size_t kInputRequestSize = 44;
constexpr std::size_t kInputRequestRate = 0;
constexpr std::size_t kInputRequestSecondRate = 4;
constexpr std::size_t kInputRequestFlag = 8;
constexpr std::size_t kInputRequestName = 12;

constexpr std::size_t kOutputRequestSize = 40;
constexpr std::size_t kOutputRequestRate = 0;
constexpr std::size_t kOutputRequestFlag = 4;
constexpr std::size_t kOutputRequestName = 8;

constexpr std::size_t kIdRecordSize = 4;

constexpr std::size_t kValueRecordSize = 12;
constexpr std::size_t kValueRecordId = 0;
constexpr std::size_t kValueRecordFlag = 4;
constexpr std::size_t kValueRecordValue = 8;

// ---- Replies and updates: sub-header, simulator word, then ----------------------------------------------------
//
//   version reply  16 version text (128)   144 protocol version   148 status, 1 accepted
//   inputs reply   16 count   20 records of 52:
//                             0 id, 4 rate, 8 rate, 12 integer flag, 16 value, 20 name (32)
//   outputs reply  16 count   20 records of 48:
//                             0 id, 4 rate, 8 integer flag, 12 zero, 16 name (32)
//   update         16 zero    20 count   24 records of 12:
//                             0 id, 4 integer flag, 8 value
//
// The outputs reply repeats the rate and the flag of the request. No client reads them.

constexpr std::size_t kVersionTextSize = 128;
constexpr std::size_t kVersionReplySize = 152;
constexpr std::uint32_t kVersionAccepted = 1;
constexpr std::size_t kInputReplySize = 52;
constexpr std::size_t kInputReplyFlag = 12;
constexpr std::size_t kInputReplyValue = 16;
constexpr std::size_t kInputReplyName = 20;
constexpr std::size_t kOutputReplySize = 48;
constexpr std::size_t kOutputReplyFlag = 8;
constexpr std::size_t kOutputReplyName = 16;

/// Ids that the host never assigns: 0 means no id, and a client uses 0xFFFFF in its requests for an unconfirmed name.
constexpr std::uint32_t kNoId = 0;
constexpr std::uint32_t kUnconfirmedId = 0xFFFFF;

}  // namespace com_tesk::host::layout
