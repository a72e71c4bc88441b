#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "client/CSClient.h"
#include "message/BigEndian.h"
#include "simulator/MessageLayout.h"

/// Encodes the six requests, in their frames. Each pure function writes at a position in the caller's buffer and
/// returns the position after it. A request is begun, gets its records, and is completed when its end is known.
namespace com_tesk::wire {

/// Returns the largest size of a request with `count` records of `recordLength`. `words` counts the words before the
/// records.
constexpr std::size_t maxRequestSize(std::size_t words, std::size_t count = 0, std::size_t recordLength = 0) {
    return layout::kRequestFieldsOffset + words * layout::kWordLength + count * recordLength;
}

/// Writes a whole request for the host's version.
char* putVersionRequest(char* at, std::uint32_t simulatorId);

/// Begins a subscription of `count` inputs. Call `putInput` for each.
char* beginInputSubscription(char* at, std::uint32_t simulatorId, std::size_t count);
char* putInput(char* at, const std::string& name, CSClient::ParameterType type, std::uint32_t subscriptionMode);

/// Begins a registration of `count` outputs. Call `putOutput` for each.
char* beginOutputRegistration(char* at, std::uint32_t simulatorId, std::size_t count);
char* putOutput(char* at, const std::string& name, CSClient::ParameterType type);

/// Begins a publication of `count` values. Call `putValue` for each.
char* beginPublication(char* at, std::uint32_t simulatorId, std::uint32_t mode, std::size_t count);
inline char* putValue(char* at, std::uint32_t id, CSClient::ParameterType type, CSClient::Value value) {
    using big_endian::putWord;
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    at = putWord(at, id);
    switch (type) {
        case CSClient::TYPE_FLOAT:
            return putWord(putWord(at, 0), bits);
        case CSClient::TYPE_INT:
            return putWord(putWord(at, 1), bits);
        case CSClient::TYPE_UNDEFINED:
            return putWord(putWord(at, 0), 0);
        default:
            // Intended: an unknown type has a truncated record. The host's behaviour is undefined for such a type.
            return at;
    }
}

/// Begins an unsubscription of `count` inputs. Call `putId` for each.
char* beginInputUnsubscription(char* at, std::uint32_t simulatorId, std::size_t count);
/// Begins an unregistration of `count` outputs. Call `putId` for each.
char* beginOutputUnregistration(char* at, std::uint32_t simulatorId, std::size_t count);
char* putId(char* at, std::uint32_t id);

/// Writes the two lengths of a request: of the frame and of the body.
/// @param request  the first byte of the request.
/// @param length   of the request, frame header included.
void complete(char* request, std::size_t length);

}  // namespace com_tesk::wire
