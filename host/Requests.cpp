#include "host/Requests.h"

#include <cstdio>

#include "host/Layout.h"

namespace com_tesk::host {

using namespace layout;

namespace {

std::string hex(unsigned value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
}

std::uint16_t simulatorIdOf(const Bytes& body) {
    return static_cast<std::uint16_t>(wordAt(body, kSimulatorOffset) >> kSimulatorShift);
}

/// Returns what is wrong with the sub-header, or an empty text.
std::string validateSubHeader(const Bytes& body) {
    if (body.size() < kSubHeaderSize) {
        return "body of " + std::to_string(body.size()) + " bytes is too short for a request";
    }
    if (body[kProtocolOffset] != kProtocol || body[kSubprotocolOffset] != kSubprotocol) {
        return "protocol bytes " + hex(body[kProtocolOffset], 2) + " " + hex(body[kSubprotocolOffset], 2) +
               " are not 0x04 0x02";
    }
    const std::uint32_t stated = wordAt(body, kBodyLengthOffset);
    if (stated != body.size()) {
        return "sub-header states a body of " + std::to_string(stated) + " bytes, it has " +
               std::to_string(body.size());
    }
    return {};
}

/// Returns what is wrong with the size of a body, or an empty text. The body has its count at `countOffset`, followed
/// by records of `recordSize` bytes.
std::string validateCount(const Bytes& body, std::size_t countOffset, std::size_t recordSize) {
    const std::size_t firstRecord = countOffset + 4;
    if (body.size() < firstRecord) {
        return "body of " + std::to_string(body.size()) + " bytes is too short for its count";
    }
    const std::uint32_t count = wordAt(body, countOffset);
    const std::size_t present = body.size() - firstRecord;
    if (count != present / recordSize || present % recordSize != 0) {
        return "count " + std::to_string(count) + " does not fit its body: " + std::to_string(present) +
               " bytes of records of " + std::to_string(recordSize);
    }
    return {};
}

Request parseVersion(const Bytes& body) {
    if (body.size() != kVersionRequestSize) {
        return BadRequest{"version request of " + std::to_string(body.size()) + " bytes, not 20"};
    }
    return VersionRequest{simulatorIdOf(body)};
}

Request parseSubscribeInputs(const Bytes& body) {
    if (auto flaw = validateCount(body, kCountOffset, kInputRequestSize); !flaw.empty()) {
        return BadRequest{"input subscription: " + flaw};
    }
    SubscribeInputs request{simulatorIdOf(body), {}};
    for (std::size_t at = kRecordsOffset; at < body.size(); at += kInputRequestSize) {
        request.inputs.push_back({wordAt(body, at + kInputRequestRate), wordAt(body, at + kInputRequestSecondRate),
                                  wordAt(body, at + kInputRequestFlag) != 0,
                                  textAt(body, at + kInputRequestName, kNameSize)});
    }
    return request;
}

Request parseRegisterOutputs(const Bytes& body) {
    if (auto flaw = validateCount(body, kCountOffset, kOutputRequestSize); !flaw.empty()) {
        return BadRequest{"output registration: " + flaw};
    }
    RegisterOutputs request{simulatorIdOf(body), {}};
    for (std::size_t at = kRecordsOffset; at < body.size(); at += kOutputRequestSize) {
        request.outputs.push_back({wordAt(body, at + kOutputRequestRate), wordAt(body, at + kOutputRequestFlag),
                                   textAt(body, at + kOutputRequestName, kNameSize)});
    }
    return request;
}

template <class RequestOfIds>
Request parseIds(const Bytes& body, const char* what) {
    if (auto flaw = validateCount(body, kCountOffset, kIdRecordSize); !flaw.empty()) {
        return BadRequest{what + flaw};
    }
    RequestOfIds request{simulatorIdOf(body), {}};
    for (std::size_t at = kRecordsOffset; at < body.size(); at += kIdRecordSize) {
        request.ids.push_back(wordAt(body, at));
    }
    return request;
}

Request parsePublish(const Bytes& body) {
    if (auto flaw = validateCount(body, kPublishCountOffset, kValueRecordSize); !flaw.empty()) {
        return BadRequest{"publish: " + flaw};
    }
    Publish request{simulatorIdOf(body), wordAt(body, kCountOffset), {}};
    for (std::size_t at = kPublishRecordsOffset; at < body.size(); at += kValueRecordSize) {
        request.values.push_back({wordAt(body, at + kValueRecordId), wordAt(body, at + kValueRecordValue)});
    }
    return request;
}

}  // namespace

Request parseRequest(const Bytes& body) {
    if (auto flaw = validateSubHeader(body); !flaw.empty()) {
        return BadRequest{flaw};
    }
    if (body[kFlagOffset] == kRequestFlag) {
        switch (body[kCodeOffset]) {
            case kSubscribeInputs:
                return parseSubscribeInputs(body);
            case kRegisterOutputs:
                return parseRegisterOutputs(body);
            case kPublish:
                return parsePublish(body);
            case kUnsubscribeInputs:
                return parseIds<UnsubscribeInputs>(body, "input unsubscription: ");
            case kUnregisterOutputs:
                return parseIds<UnregisterOutputs>(body, "output unregistration: ");
            case kVersion:
                return parseVersion(body);
        }
    }
    return BadRequest{"unknown message code " + hex((unsigned{body[kFlagOffset]} << 8) | body[kCodeOffset], 4)};
}

}  // namespace com_tesk::host
