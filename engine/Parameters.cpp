// Registers and unregisters parameters, publishes outputs, and answers the queries about them.

#include <vector>

#include "engine/EngineParts.h"

namespace com_tesk {

namespace {

/// True when an unregistration request that returned `result` permits erasing the entries. Intended: 4 counts as
/// success, although no sender of the library returns it.
constexpr bool isUnregistered(int result) {
    return (result & ~4) == 0;
}

}  // namespace

int CSClientProtocol::registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) {
    if (count == 0) {
        return CSClient::RESULT_OK;
    }
    Parts& engine = *parts;
    return engine.underParameterLock([&]() CSCLIENT_REQUIRES(engine.tables.mutex()) -> int {
        std::vector<InputParameterEntry*> batch;
        if (!engine.tables.inputs().insert(definitions, count, engine.isSilent(), batch)) {
            return CSClient::RESULT_REFUSED;
        }
        return engine.isLeftToReregistration(engine.tables.inputs().gate()) ? CSClient::RESULT_OK
                                                                            : sendInputSubscriptionRequest(batch);
    });
}

int CSClientProtocol::registerOutputParameters(const CSClient::OutputDef* definitions, unsigned int count) {
    if (count == 0) {
        return CSClient::RESULT_OK;
    }
    Parts& engine = *parts;
    return engine.underParameterLock([&]() CSCLIENT_REQUIRES(engine.tables.mutex()) -> int {
        std::vector<OutputParameterEntry*> batch;
        if (!engine.tables.outputs().insert(definitions, count, engine.isSilent(), batch)) {
            return CSClient::RESULT_REFUSED;
        }
        return engine.isLeftToReregistration(engine.tables.outputs().gate()) ? CSClient::RESULT_OK
                                                                             : sendOutputSubscriptionRequest(batch);
    });
}

int CSClientProtocol::unregisterInputParameters(const std::vector<std::string>& names) {
    if (names.empty()) {
        return CSClient::RESULT_OK;
    }
    Parts& engine = *parts;
    return engine.underParameterLock([&]() CSCLIENT_REQUIRES(engine.tables.mutex()) -> int {
        const auto found = engine.tables.inputs().all().findAll(names);
        const int result = sendInputUnsubscriptionRequest(found.batch);
        if (isUnregistered(result)) {
            engine.tables.inputs().erase(found);
        }
        return result;
    });
}

int CSClientProtocol::unregisterOutputParameters(const std::vector<std::string>& names) {
    if (names.empty()) {
        return CSClient::RESULT_OK;
    }
    Parts& engine = *parts;
    return engine.underParameterLock([&]() CSCLIENT_REQUIRES(engine.tables.mutex()) -> int {
        const auto found = engine.tables.outputs().all().findAll(names);
        const int result = sendOutputUnsubscriptionRequest(found.batch);
        if (isUnregistered(result)) {
            engine.tables.outputs().erase(found);
        }
        return result;
    });
}

void CSClientProtocol::unregisterAllInputParameters() {
    unregisterInputParameters(parts->tables.inputNames());
}

void CSClientProtocol::unregisterAllOutputParameters() {
    unregisterOutputParameters(parts->tables.outputNames());
}

void CSClientProtocol::unregisterAllLocalParameters() {
    parts->tables.clear();
}

void CSClientProtocol::reregisterAllInputParameters() {
    parts->reregisterInputs();
}

void CSClientProtocol::reregisterAllOutputParameters() {
    parts->reregisterOutputs();
}

int CSClientProtocol::publishParameters(const CSClient::Parameter* parameters, unsigned int count, PublishMode mode) {
    if (count == 0) {
        return CSClient::RESULT_OK;
    }
    Parts& engine = *parts;
    return engine.underParameterLock([&]() CSCLIENT_REQUIRES(engine.tables.mutex()) -> int {
        std::vector<OutputParameterEntry*> longBatch;
        std::vector<OutputParameterEntry*>& batch = engine.tables.outputs().batchFor(count, longBatch);
        if (!engine.tables.outputs().storeValues(parameters, count, engine.isSilent(), batch)) {
            return CSClient::RESULT_REFUSED;
        }
        return sendParameterPublishRequest(batch, mode);
    });
}

bool CSClientProtocol::confirmInputParameter(const std::string& name, std::uint32_t id) {
    Parts& engine = *parts;
    const ParameterTables::Lock lock(engine.tables, ParameterTables::Order::FIRST);
    auto anywhere = engine.tables.inputs().all().end();
    return engine.tables.inputs().confirm(anywhere, id, name) != nullptr;
}

bool CSClientProtocol::confirmOutputParameter(const std::string& name, std::uint32_t id) {
    Parts& engine = *parts;
    const ParameterTables::Lock lock(engine.tables, ParameterTables::Order::FIRST);
    auto anywhere = engine.tables.outputs().all().end();
    return engine.tables.outputs().confirm(anywhere, id, name) != nullptr;
}

bool CSClientProtocol::findPublishedParameter(const std::string& name, CSClient::Parameter& parameter) const {
    return parts->tables.findPublished(name, parameter);
}

void CSClientProtocol::getAllPublishedParameters(std::vector<CSClient::Parameter>& parameters) const {
    parts->tables.appendAllPublished(parameters);
}

unsigned int CSClientProtocol::getNumberOfInputParameters(bool confirmed) const {
    return parts->tables.numberOfInputs(confirmed);
}

unsigned int CSClientProtocol::getNumberOfOutputParameters(bool confirmed) const {
    return parts->tables.numberOfOutputs(confirmed);
}

int CSClientProtocol::getNumberOfInputParametersWaitingForConfirmation() const {
    return parts->tables.unconfirmedInputs();
}

int CSClientProtocol::getNumberOfOutputParametersWaitingForConfirmation() const {
    return parts->tables.unconfirmedOutputs();
}

bool CSClientProtocol::hasInputParameter(const std::string& name, bool confirmed) const {
    return parts->tables.hasInput(name, confirmed);
}

bool CSClientProtocol::hasOutputParameter(const std::string& name, bool confirmed) const {
    return parts->tables.hasOutput(name, confirmed);
}

}  // namespace com_tesk
