// The six requests: what bytes each carries.

#include <algorithm>
#include <cstring>
#include <iterator>

#include "message/BigEndian.h"
#include "message/FrameLayout.h"
#include "simulator/MessageLayout.h"
#include "simulator/RecordFields.h"
#include "simulator/SimulatorProtocol.h"

namespace com_tesk {

namespace {

constexpr unsigned int kNotConnected = 1;

/// Sent with every output.
constexpr unsigned int kOutputRateCode = 1200;

/// The rate code of a subscription mode.
unsigned int rateCode(std::uint32_t subscriptionMode) {
    static const unsigned int codes[] = {12000, 0, 120000};
    const std::uint32_t index = subscriptionMode - 1;
    return index <= 2 ? codes[index] : 0;
}

unsigned int integerFlag(CSClient::ParameterType type) {
    return type == CSClient::TYPE_INT ? 1 : 0;
}

char* putCount(char* at, std::size_t count) {
    return big_endian::putWord(at, static_cast<std::uint32_t>(count));
}

/// Writes a field of 32 bytes, zero after the name. A zero byte inside the name ends it.
/// @return where the next field belongs, as all writers here.
char* putName(char* at, const std::string& name) {
    std::memset(at, 0, layout::kNameLength);
    std::memcpy(at, name.data(), strnlen(name.c_str(), layout::kNameLength));
    return at + layout::kNameLength;
}

/// Writes one record of a publication.
char* putValueRecord(char* at, const CSClientProtocol::OutputParameterEntry& entry) {
    at = big_endian::putWord(at, entry.serverId);
    switch (entry.type) {
        case CSClient::TYPE_FLOAT:
            return big_endian::putWord(big_endian::putWord(at, 0), layout::bitsOf(entry.value));
        case CSClient::TYPE_INT:
            return big_endian::putWord(big_endian::putWord(at, 1), layout::bitsOf(entry.value));
        case CSClient::TYPE_UNDEFINED:
            return big_endian::putWord(big_endian::putWord(at, 0), 0);
        default:
            // An unknown type has a short record, as intended: what a host that expects 12 bytes makes of the rest is
            // the business of whoever registered such a type.
            return at;
    }
}

}  // namespace

char* SimulatorProtocol::beginRequest(RawMessage& request, const unsigned char (&subHeader)[layout::kSubHeaderLength],
                                      std::size_t longestRest) const {
    request.resize(frame::kHeaderLength + layout::kSimulatorWordOffset + layout::kWordLength + longestRest);
    char* at = std::copy(std::begin(frame::kDataHeader), std::end(frame::kDataHeader), request.data());
    at = std::copy(std::begin(subHeader), std::end(subHeader), at);
    return big_endian::putWord(at, getSimulatorId() << layout::kSimulatorIdShift);
}

unsigned int SimulatorProtocol::sendRequest(RawMessage& request, const char* end) {
    const auto length = static_cast<std::size_t>(end - request.data());
    request.resize(length);
    big_endian::putWord(request.data() + frame::kFrameLengthOffset, static_cast<std::uint32_t>(length));
    big_endian::putWord(request.data() + frame::kBodyLengthOffset,
                        static_cast<std::uint32_t>(length - frame::kHeaderLength));
    return sendFrame(request);
}

int SimulatorProtocol::sendBatchRequest(RawMessage& request, const char* end) {
    const unsigned int status = sendRequest(request, end);
    return status == kNotConnected ? 0 : static_cast<int>(status);
}

int SimulatorProtocol::requestSimulatorVersion() {
    static const unsigned char sPubHeader[] = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x06};
    const SpareMessage::Loan request(spareFrame);
    char* const at = beginRequest(*request, sPubHeader, layout::kWordLength);
    return static_cast<int>(sendRequest(*request, big_endian::putWord(at, 0)));
}

int SimulatorProtocol::sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) {
    static const unsigned char sSubHeader[] = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x01};
    constexpr std::size_t kRecordLength = 3 * layout::kWordLength + layout::kNameLength;
    if (entries.empty()) {
        return 0;
    }
    const SpareMessage::Loan request(spareFrame);
    char* at = beginRequest(*request, sSubHeader, layout::kWordLength + entries.size() * kRecordLength);
    at = putCount(at, entries.size());
    for (const InputParameterEntry* const entry : entries) {
        const unsigned int rate = rateCode(entry->subscriptionMode);
        at = big_endian::putWord(at, rate);
        at = big_endian::putWord(at, rate);  // Deliberately twice.
        at = big_endian::putWord(at, integerFlag(entry->type));
        at = putName(at, entry->name);
    }
    return sendBatchRequest(*request, at);
}

int SimulatorProtocol::sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) {
    static const unsigned char sPubHeader[] = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x02};
    constexpr std::size_t kRecordLength = 2 * layout::kWordLength + layout::kNameLength;
    if (entries.empty()) {
        return 0;
    }
    const SpareMessage::Loan request(spareFrame);
    char* at = beginRequest(*request, sPubHeader, layout::kWordLength + entries.size() * kRecordLength);
    at = putCount(at, entries.size());
    for (const OutputParameterEntry* const entry : entries) {
        at = big_endian::putWord(at, kOutputRateCode);
        at = big_endian::putWord(at, integerFlag(entry->type));
        at = putName(at, entry->name);
    }
    return sendBatchRequest(*request, at);
}

template <typename Entry>
int SimulatorProtocol::sendUnregistration(const unsigned char (&subHeader)[layout::kSubHeaderLength],
                                          const std::vector<Entry*>& entries) {
    if (entries.empty()) {
        return 0;
    }
    const SpareMessage::Loan request(spareFrame);
    char* at = beginRequest(*request, subHeader, (1 + entries.size()) * layout::kWordLength);
    at = putCount(at, entries.size());
    for (const Entry* const entry : entries) {
        at = big_endian::putWord(at, entry->serverId);
    }
    return sendBatchRequest(*request, at);
}

int SimulatorProtocol::sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) {
    static const unsigned char sUnregisterHeader[] = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00,
                                                      0x00, 0x00, 0x00, 0x7F, 0x00, 0x04};
    return sendUnregistration(sUnregisterHeader, entries);
}

int SimulatorProtocol::sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) {
    static const unsigned char sUnregisterHeader[] = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00,
                                                      0x00, 0x00, 0x00, 0x7F, 0x00, 0x05};
    return sendUnregistration(sUnregisterHeader, entries);
}

int SimulatorProtocol::sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries,
                                                   PublishMode mode) {
    static const unsigned char sUpdateHeader[] = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00,
                                                  0x00, 0x00, 0x00, 0x7F, 0x00, 0x03};
    if (entries.empty()) {
        return 0;
    }
    const SpareMessage::Loan request(spareFrame);
    char* at =
        beginRequest(*request, sUpdateHeader, 2 * layout::kWordLength + entries.size() * layout::update::kRecordLength);
    at = big_endian::putWord(at, mode);
    at = putCount(at, entries.size());
    for (const OutputParameterEntry* const entry : entries) {
        at = putValueRecord(at, *entry);
    }
    return sendBatchRequest(*request, at);
}

}  // namespace com_tesk
