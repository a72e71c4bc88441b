// Sends the six requests. simulator/RequestEncoding.cpp encodes their bytes.

#include "simulator/RequestEncoding.h"
#include "simulator/SimulatorInside.h"

namespace com_tesk {

int SimulatorProtocol::requestSimulatorVersion() {
    return static_cast<int>(inside->send(wire::maxRequestSize(1),
                                         [this](char* at) { return wire::putVersionRequest(at, getSimulatorId()); }));
}

int SimulatorProtocol::sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) {
    if (entries.empty()) {
        return CSClient::RESULT_OK;
    }
    constexpr std::size_t kRecordLength = layout::input_subscription::kRecordLength;
    return inside->sendBatch(wire::maxRequestSize(1, entries.size(), kRecordLength), [&](char* at) {
        at = wire::beginInputSubscription(at, getSimulatorId(), entries.size());
        for (const InputParameterEntry* const entry : entries) {
            at = wire::putInput(at, entry->name, entry->type, entry->subscriptionMode);
        }
        return at;
    });
}

int SimulatorProtocol::sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) {
    if (entries.empty()) {
        return CSClient::RESULT_OK;
    }
    return inside->sendBatch(wire::maxRequestSize(1 + entries.size()), [&](char* at) {
        at = wire::beginInputUnsubscription(at, getSimulatorId(), entries.size());
        for (const InputParameterEntry* const entry : entries) {
            at = wire::putId(at, entry->serverId);
        }
        return at;
    });
}

int SimulatorProtocol::sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) {
    if (entries.empty()) {
        return CSClient::RESULT_OK;
    }
    constexpr std::size_t kRecordLength = layout::output_registration::kRecordLength;
    return inside->sendBatch(wire::maxRequestSize(1, entries.size(), kRecordLength), [&](char* at) {
        at = wire::beginOutputRegistration(at, getSimulatorId(), entries.size());
        for (const OutputParameterEntry* const entry : entries) {
            at = wire::putOutput(at, entry->name, entry->type);
        }
        return at;
    });
}

int SimulatorProtocol::sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) {
    if (entries.empty()) {
        return CSClient::RESULT_OK;
    }
    return inside->sendBatch(wire::maxRequestSize(1 + entries.size()), [&](char* at) {
        at = wire::beginOutputUnregistration(at, getSimulatorId(), entries.size());
        for (const OutputParameterEntry* const entry : entries) {
            at = wire::putId(at, entry->serverId);
        }
        return at;
    });
}

int SimulatorProtocol::sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries,
                                                   PublishMode mode) {
    if (entries.empty()) {
        return CSClient::RESULT_OK;
    }
    constexpr std::size_t kRecordLength = layout::publication::kRecordLength;
    return inside->sendBatch(wire::maxRequestSize(2, entries.size(), kRecordLength), [&](char* at) {
        at = wire::beginPublication(at, getSimulatorId(), mode, entries.size());
        for (const OutputParameterEntry* const entry : entries) {
            at = wire::putValue(at, entry->serverId, entry->type, entry->value);
        }
        return at;
    });
}

}  // namespace com_tesk
