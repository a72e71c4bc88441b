#pragma once

#include <random>
#include <set>
#include <string>
#include <vector>

#include "message/RawMessage.h"
#include "tests/reliability/ClientUnderTest.h"

namespace com_tesk::test {

/// Random arguments of an operation. Some are refused.
struct Arguments {
    std::mt19937_64& random;
    unsigned int port;                   ///< of the host
    CSClient::CallbackIface* callbacks;  ///< to add and remove

    bool isOneIn(unsigned int count) const { return random() % count == 0; }
    /// One of few names, so that calls meet.
    std::string name() const { return isOneIn(50) ? std::string(32, 'x') : "P" + std::to_string(random() % 12); }
    std::vector<std::string> names() const { return {name(), name()}; }
    CSClient::ParameterType type() const {
        return isOneIn(50) ? CSClient::TYPE_UNDEFINED : 1 + static_cast<CSClient::ParameterType>(random() % 2);
    }
    CSClient::OutputDef output() const { return {name(), type()}; }
    std::vector<CSClient::OutputDef> outputs() const { return {output(), output()}; }
    CSClient::InputDef input() const { return {name(), type(), static_cast<std::uint32_t>(random() % 5)}; }
    std::vector<CSClient::InputDef> inputs() const { return {input(), input()}; }
    CSClient::Parameter value() const {
        CSClient::Parameter value = intValue(name(), static_cast<std::int32_t>(random()));
        value.type = type();
        return value;
    }
    std::vector<CSClient::Parameter> values() const { return {value(), value()}; }
    /// Seldom one, because a wait sleeps for the whole time.
    unsigned int seconds() const { return isOneIn(40) ? 1 : 0; }
    RawMessage message() const {
        RawMessage message(static_cast<RawMessage::Type>(random() % 3));
        message.resize(static_cast<std::size_t>(random()) % 40);
        return message;
    }
};

/// One public operation of a client.
struct ClientOperation {
    const char* name;
    void (*call)(CSClient& client, const Arguments& with);
    bool opensOrCloses = false;  ///< not allowed inside a callback of a state change
};

// The text of the call is the operation's name.
#define CSCLIENT_TEST_OPERATION(expression)                                                               \
    {                                                                                                     \
#expression, [](CSClient & client, [[maybe_unused]] const Arguments& with) { client.expression; } \
    }

/// Every public operation of a client.
inline const std::vector<ClientOperation>& clientOperations() {
    static const std::vector<ClientOperation> operations = {
        {"open", [](CSClient& client, const Arguments& with) { client.open(0x0200007F, with.port, nullptr); }, true},
        {"open by text", [](CSClient& client, const Arguments& with) { client.open(kHostAddress, with.port, nullptr); },
         true},
        {"close", [](CSClient& client, const Arguments& /*with*/) { client.close(); }, true},
        CSCLIENT_TEST_OPERATION(sendMessage(with.message())),
        CSCLIENT_TEST_OPERATION(waitForConnectionState(CSClient::STATE_READY, with.seconds())),
        CSCLIENT_TEST_OPERATION(getOptions()),
        CSCLIENT_TEST_OPERATION(hasOptions(1)),
        CSCLIENT_TEST_OPERATION(getConnectionState()),
        CSCLIENT_TEST_OPERATION(getServerVersion()),
        CSCLIENT_TEST_OPERATION(getProtocolVersion()),
        CSCLIENT_TEST_OPERATION(getServerIPAddress()),
        CSCLIENT_TEST_OPERATION(getServerPort()),
        CSCLIENT_TEST_OPERATION(getClientVersion()),
        CSCLIENT_TEST_OPERATION(getNumberOfRegisteredOutputParameters()),
        CSCLIENT_TEST_OPERATION(getNumberOfUnregisteredOutputParameters()),
        CSCLIENT_TEST_OPERATION(getNumberOfRegisteredInputParameters()),
        CSCLIENT_TEST_OPERATION(getNumberOfUnregisteredInputParameters()),
        CSCLIENT_TEST_OPERATION(isOutputParameterRegistered(with.name())),
        CSCLIENT_TEST_OPERATION(isInputParameterRegistered(with.name())),
        CSCLIENT_TEST_OPERATION(registerOutputParameter(with.output())),
        CSCLIENT_TEST_OPERATION(registerOutputParameters(with.outputs().data(), 2)),
        CSCLIENT_TEST_OPERATION(registerOutputParameters(with.outputs())),
        CSCLIENT_TEST_OPERATION(waitForOutputsToBeRegistered(with.seconds())),
        CSCLIENT_TEST_OPERATION(unregisterOutputParameter(with.name())),
        CSCLIENT_TEST_OPERATION(unregisterOutputParameters(with.names())),
        CSCLIENT_TEST_OPERATION(unregisterOutputParameters(with.outputs().data(), 2)),
        CSCLIENT_TEST_OPERATION(unregisterAllOutputParameters()),
        CSCLIENT_TEST_OPERATION(registerInputParameter(with.input())),
        CSCLIENT_TEST_OPERATION(registerInputParameters(with.inputs().data(), 2)),
        CSCLIENT_TEST_OPERATION(registerInputParameters(with.inputs())),
        CSCLIENT_TEST_OPERATION(waitForInputsToBeRegistered(with.seconds())),
        CSCLIENT_TEST_OPERATION(unregisterInputParameter(with.name())),
        CSCLIENT_TEST_OPERATION(unregisterInputParameters(with.names())),
        CSCLIENT_TEST_OPERATION(unregisterInputParameters(with.inputs().data(), 2)),
        CSCLIENT_TEST_OPERATION(unregisterAllInputParameters()),
        CSCLIENT_TEST_OPERATION(publishParameter(with.value())),
        CSCLIENT_TEST_OPERATION(publishParameters(with.values().data(), 2)),
        CSCLIENT_TEST_OPERATION(publishParameters(with.values())),
        {"findPublishedParameter",
         [](CSClient& client, const Arguments& with) {
             CSClient::Parameter found;
             client.findPublishedParameter(with.name(), found);
         }},
        {"getAllPublishedParameters",
         [](CSClient& client, const Arguments& /*with*/) {
             std::vector<CSClient::Parameter> all;
             client.getAllPublishedParameters(all);
         }},
        CSCLIENT_TEST_OPERATION(addCallbackInterface(with.callbacks)),
        CSCLIENT_TEST_OPERATION(removeCallbackInterface(with.callbacks)),
        CSCLIENT_TEST_OPERATION(hasCallbackInterface(with.callbacks)),
        CSCLIENT_TEST_OPERATION(getNumCallbackInterfaces()),
        {"getCallbackInterfaces",
         [](CSClient& client, const Arguments& /*with*/) {
             std::set<CSClient::CallbackIface*> interfaces;
             client.getCallbackInterfaces(interfaces);
         }},
    };
    return operations;
}

#undef CSCLIENT_TEST_OPERATION

}  // namespace com_tesk::test
