// The six requests: what bytes each carries.

#include <algorithm>
#include <cstring>

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

void writeCount(RawMessage& request, std::size_t count) {
    request.write(static_cast<unsigned int>(count));
}

/// A field of 32 bytes, zero after the name. A zero byte inside the name ends it.
void writeName(RawMessage& request, const std::string& name) {
    char field[layout::kNameLength] = {};
    std::memcpy(field, name.data(), strnlen(name.c_str(), layout::kNameLength));
    request.write(field, sizeof field);
}

/// The largest record of a publication: id, integer flag, value.
constexpr std::size_t kValueRecordLength = 12;

/// Writes one record of a publication.
/// @return where the next one belongs.
char* writeValueRecord(char* at, const CSClientProtocol::OutputParameterEntry& entry) {
    at = layout::putWord(at, entry.serverId);
    switch (entry.type) {
        case CSClient::TYPE_FLOAT:
            return layout::putWord(layout::putWord(at, 0), layout::bitsOf(entry.value));
        case CSClient::TYPE_INT:
            return layout::putWord(layout::putWord(at, 1), layout::bitsOf(entry.value));
        case CSClient::TYPE_UNDEFINED:
            return layout::putWord(layout::putWord(at, 0), 0);
        default:
            // An unknown type has a short record, as intended: what a host that expects 12 bytes makes of the rest is
            // the business of whoever registered such a type.
            return at;
    }
}

}  // namespace

void SimulatorProtocol::beginRequest(RawMessage& request,
                                     const unsigned char (&subHeader)[layout::kSubHeaderLength]) const {
    request.insert(request.end(), subHeader, subHeader + sizeof subHeader);
    request.write(getSimulatorId() << layout::kSimulatorIdShift);
}

int SimulatorProtocol::sendBatchRequest(const RawMessage& request) {
    const unsigned int status = sendMessage(request);
    return status == kNotConnected ? 0 : static_cast<int>(status);
}

int SimulatorProtocol::requestSimulatorVersion() {
    static const unsigned char sPubHeader[] = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x06};
    const SpareMessage::Loan request(spareRequest, RawMessage::DATA);
    beginRequest(*request, sPubHeader);
    request->write(0U);
    return static_cast<int>(sendMessage(*request));
}

int SimulatorProtocol::sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) {
    static const unsigned char sSubHeader[] = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x01};
    if (entries.empty()) {
        return 0;
    }
    const SpareMessage::Loan request(spareRequest, RawMessage::DATA);
    beginRequest(*request, sSubHeader);
    writeCount(*request, entries.size());
    for (const InputParameterEntry* const entry : entries) {
        const unsigned int rate = rateCode(entry->subscriptionMode);
        request->write(rate);
        request->write(rate);  // Deliberately twice.
        request->write(integerFlag(entry->type));
        writeName(*request, entry->name);
    }
    return sendBatchRequest(*request);
}

int SimulatorProtocol::sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) {
    static const unsigned char sPubHeader[] = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F, 0x00, 0x02};
    if (entries.empty()) {
        return 0;
    }
    const SpareMessage::Loan request(spareRequest, RawMessage::DATA);
    beginRequest(*request, sPubHeader);
    writeCount(*request, entries.size());
    for (const OutputParameterEntry* const entry : entries) {
        request->write(kOutputRateCode);
        request->write(integerFlag(entry->type));
        writeName(*request, entry->name);
    }
    return sendBatchRequest(*request);
}

template <typename Entry>
int SimulatorProtocol::sendUnregistration(const unsigned char (&subHeader)[layout::kSubHeaderLength],
                                          const std::vector<Entry*>& entries) {
    if (entries.empty()) {
        return 0;
    }
    const SpareMessage::Loan request(spareRequest, RawMessage::DATA);
    beginRequest(*request, subHeader);
    writeCount(*request, entries.size());
    for (const Entry* const entry : entries) {
        request->write(static_cast<unsigned int>(entry->serverId));
    }
    return sendBatchRequest(*request);
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
    const SpareMessage::Loan request(spareRequest, RawMessage::DATA);
    beginRequest(*request, sUpdateHeader);
    request->write(static_cast<unsigned int>(mode));
    writeCount(*request, entries.size());
    const std::size_t records = request->size();
    request->resize(records + entries.size() * kValueRecordLength);
    char* at = request->data() + records;
    for (const OutputParameterEntry* const entry : entries) {
        at = writeValueRecord(at, *entry);
    }
    request->resize(static_cast<std::size_t>(at - request->data()));
    return sendBatchRequest(*request);
}

}  // namespace com_tesk
