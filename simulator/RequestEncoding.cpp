#include "simulator/RequestEncoding.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "message/BigEndian.h"
#include "message/FrameLayout.h"

namespace com_tesk::wire {

using big_endian::putWord;

namespace {

using SubHeader = unsigned char[layout::kSubHeaderLength];

char* begin(char* at, const SubHeader& subHeader, std::uint32_t simulatorId) {
    at = std::copy(std::begin(frame::kDataHeader), std::end(frame::kDataHeader), at);
    at = std::copy(std::begin(subHeader), std::end(subHeader), at);
    return putWord(at, simulatorId << layout::kSimulatorIdShift);
}

char* putCount(char* at, std::size_t count) {
    return putWord(at, static_cast<std::uint32_t>(count));
}

std::uint32_t integerFlag(CSClient::ParameterType type) {
    return type == CSClient::TYPE_INT ? 1 : 0;
}

std::uint32_t rateOf(std::uint32_t subscriptionMode) {
    const std::uint32_t index = subscriptionMode - 1;
    return index < std::size(layout::input_subscription::kRates) ? layout::input_subscription::kRates[index] : 0;
}

/// Writes a name field, padded with zero bytes. A zero byte inside the name ends it.
char* putName(char* at, const std::string& name) {
    std::memset(at, 0, layout::kNameLength);
    std::memcpy(at, name.data(), strnlen(name.c_str(), layout::kNameLength));
    return at + layout::kNameLength;
}

}  // namespace

char* putVersionRequest(char* at, std::uint32_t simulatorId) {
    static const SubHeader sPubHeader = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x06};
    return putWord(begin(at, sPubHeader, simulatorId), 0);
}

char* beginInputSubscription(char* at, std::uint32_t simulatorId, std::size_t count) {
    static const SubHeader sSubHeader = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x01};
    return putCount(begin(at, sSubHeader, simulatorId), count);
}

char* putInput(char* at, const std::string& name, CSClient::ParameterType type, std::uint32_t subscriptionMode) {
    const std::uint32_t rate = rateOf(subscriptionMode);
    at = putWord(at, rate);
    at = putWord(at, rate);  // Intended: hosts expect the rate twice.
    at = putWord(at, integerFlag(type));
    return putName(at, name);
}

char* beginOutputRegistration(char* at, std::uint32_t simulatorId, std::size_t count) {
    static const SubHeader sPubHeader = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x02};
    return putCount(begin(at, sPubHeader, simulatorId), count);
}

char* putOutput(char* at, const std::string& name, CSClient::ParameterType type) {
    at = putWord(at, layout::output_registration::kRate);
    at = putWord(at, integerFlag(type));
    return putName(at, name);
}

char* beginPublication(char* at, std::uint32_t simulatorId, std::uint32_t mode, std::size_t count) {
    static const SubHeader sUpdateHeader = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x03};
    at = putWord(begin(at, sUpdateHeader, simulatorId), mode);
    return putCount(at, count);
}

char* beginInputUnsubscription(char* at, std::uint32_t simulatorId, std::size_t count) {
    static const SubHeader sUnregisterHeader = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x04};
    return putCount(begin(at, sUnregisterHeader, simulatorId), count);
}

char* beginOutputUnregistration(char* at, std::uint32_t simulatorId, std::size_t count) {
    static const SubHeader sUnregisterHeader = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x05};
    return putCount(begin(at, sUnregisterHeader, simulatorId), count);
}

char* putId(char* at, std::uint32_t id) {
    return putWord(at, id);
}

void complete(char* request, std::size_t length) {
    putWord(request + frame::kFrameLengthOffset, static_cast<std::uint32_t>(length));
    putWord(request + frame::kBodyLengthOffset, static_cast<std::uint32_t>(length - frame::kHeaderLength));
}

}  // namespace com_tesk::wire
