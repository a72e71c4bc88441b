#pragma once

#include <cstddef>
#include <cstdint>

#include "message/FrameLayout.h"

// The bodies of the simulator protocol's messages. Offsets count from the start of the body, which follows the 32
// bytes of frame header. All words are big-endian and 32 bits wide, except the message code.
//
// Every body begins with the sub-header. In every body but the update's, the simulator word follows:
//
//   offset  0    1    2       4             8    9    10         12                        16
//          +----+----+-------+-------------+----+----+----------+-------------------------+------
//          | 04 | 02 | 7F FF | body length | 00 | 7F | message  | simulator id << 16      | ...
//          |    |    |       |             |    |    | code     |                         |
//          +----+----+-------+-------------+----+----+----------+-------------------------+------
//
//   code    message                        from     body from offset 16
//   00 01   input subscription             client   count, records of 44: rate, rate, integer flag, name[32]
//   00 02   output registration            client   count, records of 40: 1200, integer flag, name[32]
//   00 03   publication                    client   mode, count, records of 12: id, integer flag, value
//   00 04   input unsubscription           client   count, ids
//   00 05   output unregistration          client   count, ids
//   00 06   version request                client   0
//   01 01   input subscription confirmed   host     count, records of 52: id, -[8], integer flag, value, name[32]
//   01 02   output registration confirmed  host     count, records of 48: id, -[12], name[32]
//   00 03   update                         host     -[4], count, records of 12: id, integer flag, value
//   01 06   version                        host     version text[128], protocol version, status
//
// Names and texts are padded with zero bytes. One that fills its field has none.

namespace com_tesk::layout {

constexpr unsigned int kSubHeaderLength = 12;
constexpr unsigned int kMessageCodeOffset = 10;
constexpr unsigned int kSimulatorWordOffset = 12;
/// The upper half of the simulator word holds the simulator id.
constexpr unsigned int kSimulatorIdShift = 16;

constexpr unsigned int kProtocol = 4;
constexpr unsigned int kSubprotocol = 2;

constexpr std::size_t kWordLength = 4;
constexpr std::size_t kNameLength = 32;

/// The 16-bit codes of the host's messages. The codes of requests are in their sub-headers
/// (simulator/RequestEncoding.cpp).
constexpr unsigned int kInputSubscriptionConfirmed = 0x0101;
constexpr unsigned int kOutputRegistrationConfirmed = 0x0102;
constexpr unsigned int kUpdate = 0x0003;
constexpr unsigned int kVersion = 0x0106;

/// Offsets of the count and the records in a confirmation.
constexpr unsigned int kCountOffset = 16;
constexpr unsigned int kRecordsOffset = 20;

namespace input_subscription {
constexpr std::size_t kRecordLength = 3 * kWordLength + kNameLength;
/// The rates of the subscription modes 1, 2 and 3. Any other mode has rate 0.
constexpr unsigned int kRates[] = {12000, 0, 120000};
}  // namespace input_subscription

namespace output_registration {
constexpr std::size_t kRecordLength = 2 * kWordLength + kNameLength;
/// Sent with every output.
constexpr unsigned int kRate = 1200;
}  // namespace output_registration

namespace publication {
constexpr std::size_t kRecordLength = 3 * kWordLength;
}  // namespace publication

/// Length of the common beginning of every request: the frame header, the sub-header and the simulator word.
constexpr std::size_t kRequestFieldsOffset = frame::kHeaderLength + kSimulatorWordOffset + kWordLength;

namespace input_confirmation {
constexpr unsigned int kRecordLength = 52;
constexpr unsigned int kId = 0;
constexpr unsigned int kIntegerFlag = 12;
constexpr unsigned int kValue = 16;
constexpr unsigned int kName = 20;
}  // namespace input_confirmation

namespace output_confirmation {
constexpr unsigned int kRecordLength = 48;
constexpr unsigned int kId = 0;
constexpr unsigned int kName = 16;
}  // namespace output_confirmation

namespace update {
constexpr unsigned int kUpdateCountOffset = 20;
constexpr unsigned int kUpdateRecordsOffset = 24;
constexpr unsigned int kRecordLength = 12;
constexpr unsigned int kId = 0;
constexpr unsigned int kIntegerFlag = 4;
constexpr unsigned int kValue = 8;
}  // namespace update

namespace version {
constexpr unsigned int kTextOffset = 16;
constexpr std::size_t kTextLength = 128;
constexpr unsigned int kProtocolVersionOffset = 144;
constexpr unsigned int kStatusOffset = 148;
/// The only status that the library acts on.
constexpr unsigned int kAccepted = 1;
}  // namespace version

/// Returns the number of records in a body that announces `announced` of them: at most those that fit whole.
constexpr unsigned int wholeRecords(std::size_t bodySize, std::size_t firstOffset, std::size_t recordLength,
                                    unsigned int announced) {
    const std::size_t fitting = bodySize < firstOffset ? 0 : (bodySize - firstOffset) / recordLength;
    return announced < fitting ? announced : static_cast<unsigned int>(fitting);
}

}  // namespace com_tesk::layout
