#include "client/CSClient.h"

#include <limits>
#include <stdexcept>

#include "comms/CSCommsInterfaceTCP.h"
#include "comms/CancellationDisabled.h"
#include "comms/WholeSeconds.h"
#include "engine/CSClientProtocol.h"

namespace com_tesk {

namespace {

constexpr unsigned int kPollSeconds = 1;

/// Returns the names of `count` definitions, in order.
template <typename Definition>
std::vector<std::string> namesOf(const Definition* definitions, unsigned int count) {
    // The limit of the 32-bit target applies on every machine.
    constexpr unsigned int kMaxNames = std::numeric_limits<std::uint32_t>::max() / 4;
    if (count > kMaxNames) {
        throw std::length_error("vector::reserve");
    }
    std::vector<std::string> names;
    names.reserve(count);
    for (unsigned int i = 0; i < count; ++i) {
        names.push_back(definitions[i].name);
    }
    return names;
}

/// Polls at most `seconds` times and sleeps after each failed poll. Intended: it also sleeps after the last one, and
/// callers rely on it.
template <typename AllConfirmed>
bool waitForConfirmations(unsigned int seconds, const AllConfirmed& allConfirmed) {
    for (unsigned int poll = 0; poll < seconds; ++poll) {
        if (allConfirmed()) {
            return true;
        }
        sleepWholeSeconds(kPollSeconds);
    }
    return false;
}

}  // namespace

CSClient::CSClient(unsigned int /*options*/) {}

CSClient::~CSClient() {
    if (engine == nullptr) {
        return;  // The subclass's constructor has failed.
    }
    const CancellationDisabled untilDestroyed;
    endConnection();
    delete engine;
    engine = nullptr;
}

void CSClient::endConnection() {
    const CancellationDisabled untilEnded;
    engine->forceCloseConnection();
    while (engine->getState() != STATE_DISCONNECTED) {
        sleepWholeSeconds(kPollSeconds);
    }
}

int CSClient::open(unsigned int address, unsigned int port, const ConnectionOptions* options) {
    return engine->openConnection(address, port, options);
}

int CSClient::open(const char* address, unsigned int port, const ConnectionOptions* options) {
    return open(CSCommsInterfaceTCP::convertIPAddressToOctet(address), port, options);
}

CSClient::State CSClient::close() {
    constexpr unsigned int kPolls = 2;
    engine->forceCloseConnection();
    for (unsigned int poll = 0; poll < kPolls; ++poll) {
        if (engine->getState() == STATE_DISCONNECTED) {
            return STATE_DISCONNECTED;
        }
        sleepWholeSeconds(kPollSeconds);
    }
    return engine->getState();
}

bool CSClient::changeCommsInterface(CSCommsInterfaceTCP* transport) {
    return engine->changeCommsInterface(transport);
}

bool CSClient::changeCommsInterface(std::unique_ptr<CSCommsInterfaceTCP> transport) {
    // Destroying the previous transport is a cancellation point. The client already has the new one there.
    const CancellationDisabled untilReleased;
    const bool isTaken = changeCommsInterface(transport.get());
    if (isTaken) {
        static_cast<void>(transport.release());
    }
    return isTaken;
}

int CSClient::sendMessage(const RawMessage& message) {
    return static_cast<int>(engine->sendMessage(message));
}

bool CSClient::waitForConnectionState(State wanted, unsigned int seconds) const {
    for (unsigned int poll = 0; poll < seconds; ++poll) {
        if (engine->getState() == wanted) {
            return true;
        }
        sleepWholeSeconds(kPollSeconds);
    }
    // A poll follows the last sleep, so 0 seconds are a single poll.
    return engine->getState() == wanted;
}

unsigned int CSClient::getOptions() const {
    return engine->getOptions();
}

bool CSClient::hasOptions(unsigned int mask) const {
    return (engine->getOptions() & mask) == mask;
}

CSClient::State CSClient::getConnectionState() const {
    return engine->getState();
}

std::string CSClient::getServerVersion() const {
    return engine->getServerVersion();
}

unsigned int CSClient::getProtocolVersion() const {
    return engine->getProtocolVersion();
}

std::string CSClient::getServerIPAddress() const {
    return engine->getServerIPAddress();
}

unsigned int CSClient::getServerPort() const {
    return engine->getServerPort();
}

const char* CSClient::getClientVersion() {
    return CSCLIENT_VERSION_TEXT;
}

int CSClient::getNumberOfRegisteredOutputParameters() const {
    return static_cast<int>(engine->getNumberOfOutputParameters(true));
}

int CSClient::getNumberOfUnregisteredOutputParameters() const {
    return engine->getNumberOfOutputParametersWaitingForConfirmation();
}

int CSClient::getNumberOfRegisteredInputParameters() const {
    return static_cast<int>(engine->getNumberOfInputParameters(true));
}

int CSClient::getNumberOfUnregisteredInputParameters() const {
    return engine->getNumberOfInputParametersWaitingForConfirmation();
}

bool CSClient::isOutputParameterRegistered(const std::string& name) const {
    return engine->hasOutputParameter(name, true);
}

bool CSClient::isInputParameterRegistered(const std::string& name) const {
    return engine->hasInputParameter(name, true);
}

int CSClient::registerOutputParameter(const OutputDef& definition) {
    return engine->registerOutputParameters(&definition, 1);
}

int CSClient::registerOutputParameters(const OutputDef* definitions, unsigned int count) {
    return engine->registerOutputParameters(definitions, count);
}

int CSClient::registerOutputParameters(const std::vector<OutputDef>& definitions) {
    if (definitions.empty()) {
        return 0;
    }
    return registerOutputParameters(definitions.data(), static_cast<unsigned int>(definitions.size()));
}

bool CSClient::waitForOutputsToBeRegistered(unsigned int seconds) const {
    return waitForConfirmations(seconds, [this] {
        return engine->getNumberOfOutputParameters(false) == engine->getNumberOfOutputParameters(true);
    });
}

int CSClient::unregisterOutputParameter(const std::string& name) {
    return engine->unregisterOutputParameters({name});
}

int CSClient::unregisterOutputParameters(const std::vector<std::string>& names) {
    return engine->unregisterOutputParameters(names);
}

int CSClient::unregisterOutputParameters(const OutputDef* definitions, unsigned int count) {
    return engine->unregisterOutputParameters(namesOf(definitions, count));
}

void CSClient::unregisterAllOutputParameters() {
    engine->unregisterAllOutputParameters();
}

int CSClient::registerInputParameter(const InputDef& definition) {
    return engine->registerInputParameters(&definition, 1);
}

int CSClient::registerInputParameters(const InputDef* definitions, unsigned int count) {
    return engine->registerInputParameters(definitions, count);
}

int CSClient::registerInputParameters(const std::vector<InputDef>& definitions) {
    if (definitions.empty()) {
        return 0;
    }
    return registerInputParameters(definitions.data(), static_cast<unsigned int>(definitions.size()));
}

bool CSClient::waitForInputsToBeRegistered(unsigned int seconds) const {
    return waitForConfirmations(seconds, [this] {
        return engine->getNumberOfInputParameters(false) == engine->getNumberOfInputParameters(true);
    });
}

int CSClient::unregisterInputParameter(const std::string& name) {
    return engine->unregisterInputParameters({name});
}

int CSClient::unregisterInputParameters(const std::vector<std::string>& names) {
    return engine->unregisterInputParameters(names);
}

int CSClient::unregisterInputParameters(const InputDef* definitions, unsigned int count) {
    return engine->unregisterInputParameters(namesOf(definitions, count));
}

void CSClient::unregisterAllInputParameters() {
    engine->unregisterAllInputParameters();
}

int CSClient::publishParameter(const Parameter& parameter) {
    return publishParameters(&parameter, 1);
}

int CSClient::publishParameters(const Parameter* parameters, unsigned int count) {
    return engine->publishParameters(parameters, count, CSClientProtocol::PUBLISH_DEFAULT);
}

int CSClient::publishParameters(const std::vector<Parameter>& parameters) {
    if (parameters.empty()) {
        return 0;
    }
    return publishParameters(parameters.data(), static_cast<unsigned int>(parameters.size()));
}

bool CSClient::findPublishedParameter(const std::string& name, Parameter& out) const {
    return engine->findPublishedParameter(name, out);
}

void CSClient::getAllPublishedParameters(std::vector<Parameter>& out) const {
    engine->getAllPublishedParameters(out);
}

unsigned int CSClient::addCallbackInterface(CallbackIface* callbackInterface) {
    return engine->addCallbackInterface(callbackInterface);
}

int CSClient::removeCallbackInterface(CallbackIface* callbackInterface) {
    return engine->removeCallbackInterface(callbackInterface);
}

bool CSClient::hasCallbackInterface(CallbackIface* callbackInterface) {
    return engine->hasCallbackInterface(callbackInterface);
}

int CSClient::getNumCallbackInterfaces() const {
    return engine->getNumCallbackInterfaces();
}

int CSClient::getCallbackInterfaces(std::set<CallbackIface*>& out) {
    return engine->getCallbackInterfaces(out);
}

}  // namespace com_tesk
