#include "tests/reliability/Operations.h"

#include <string>

#include "comms/CSCommsInterfaceTCP.h"
#include "message/RawMessage.h"
#include "tests/reliability/Sockets.h"

namespace com_tesk::test {

namespace {

using Names = std::vector<std::string>;

/// One of a few names, so that calls meet; seldom one that is too long.
std::string anyName(std::mt19937_64& random) {
    return random() % 50 == 0 ? std::string(32, 'x') : "P" + std::to_string(random() % 12);
}

/// Seldom a type that is refused.
CSClient::ParameterType anyType(std::mt19937_64& random) {
    return random() % 50 == 0 ? CSClient::TYPE_UNDEFINED : 1 + static_cast<CSClient::ParameterType>(random() % 2);
}

CSClient::OutputDef anyOutput(std::mt19937_64& random) {
    return {anyName(random), anyType(random)};
}

CSClient::InputDef anyInput(std::mt19937_64& random) {
    return {anyName(random), anyType(random), static_cast<std::uint32_t>(random() % 5)};
}

CSClient::Parameter anyValue(std::mt19937_64& random) {
    CSClient::Parameter value;
    value.name = anyName(random);
    value.type = anyType(random);
    value.value.asInt = static_cast<std::int32_t>(random());
    return value;
}

/// Seldom one: it is slept to its end.
unsigned int anySeconds(std::mt19937_64& random) {
    return random() % 40 == 0 ? 1 : 0;
}

RawMessage anyMessage(std::mt19937_64& random) {
    RawMessage message(static_cast<RawMessage::Type>(random() % 3));
    message.resize(static_cast<std::size_t>(random()) % 40);
    return message;
}

}  // namespace

const std::vector<Operation>& allOperations() {
    using Client = CSClient;
    using With = const Surroundings&;
    static const std::vector<Operation> operations = {
        {"open", true,
         [](Client& client, With with) {
             client.open(CSCommsInterfaceTCP::convertIPAddressToOctet(kHostAddress), with.port, nullptr);
         }},
        {"open by text", true, [](Client& client, With with) { client.open(kHostAddress, with.port, nullptr); }},
        {"close", true, [](Client& client, With) { client.close(); }},
        {"sendMessage", false, [](Client& client, With with) { client.sendMessage(anyMessage(with.random)); }},
        {"waitForConnectionState", false,
         [](Client& client, With with) {
             client.waitForConnectionState(CSClient::STATE_READY, anySeconds(with.random));
         }},
        {"getOptions", false, [](Client& client, With) { client.getOptions(); }},
        {"hasOptions", false, [](Client& client, With) { client.hasOptions(1); }},
        {"getConnectionState", false, [](Client& client, With) { client.getConnectionState(); }},
        {"getServerVersion", false, [](Client& client, With) { client.getServerVersion(); }},
        {"getProtocolVersion", false, [](Client& client, With) { client.getProtocolVersion(); }},
        {"getServerIPAddress", false, [](Client& client, With) { client.getServerIPAddress(); }},
        {"getServerPort", false, [](Client& client, With) { client.getServerPort(); }},
        {"getClientVersion", false, [](Client& client, With) { client.getClientVersion(); }},
        {"getNumberOfRegisteredOutputParameters", false,
         [](Client& client, With) { client.getNumberOfRegisteredOutputParameters(); }},
        {"getNumberOfUnregisteredOutputParameters", false,
         [](Client& client, With) { client.getNumberOfUnregisteredOutputParameters(); }},
        {"getNumberOfRegisteredInputParameters", false,
         [](Client& client, With) { client.getNumberOfRegisteredInputParameters(); }},
        {"getNumberOfUnregisteredInputParameters", false,
         [](Client& client, With) { client.getNumberOfUnregisteredInputParameters(); }},
        {"isOutputParameterRegistered", false,
         [](Client& client, With with) { client.isOutputParameterRegistered(anyName(with.random)); }},
        {"isInputParameterRegistered", false,
         [](Client& client, With with) { client.isInputParameterRegistered(anyName(with.random)); }},
        {"registerOutputParameter", false,
         [](Client& client, With with) { client.registerOutputParameter(anyOutput(with.random)); }},
        {"registerOutputParameters by pointer", false,
         [](Client& client, With with) {
             const CSClient::OutputDef outputs[] = {anyOutput(with.random), anyOutput(with.random)};
             client.registerOutputParameters(outputs, 2);
         }},
        {"registerOutputParameters", false,
         [](Client& client, With with) {
             client.registerOutputParameters({anyOutput(with.random), anyOutput(with.random)});
         }},
        {"waitForOutputsToBeRegistered", false,
         [](Client& client, With with) { client.waitForOutputsToBeRegistered(anySeconds(with.random)); }},
        {"unregisterOutputParameter", false,
         [](Client& client, With with) { client.unregisterOutputParameter(anyName(with.random)); }},
        {"unregisterOutputParameters by name", false,
         [](Client& client, With with) {
             client.unregisterOutputParameters(Names{anyName(with.random), anyName(with.random)});
         }},
        {"unregisterOutputParameters by definition", false,
         [](Client& client, With with) {
             const CSClient::OutputDef outputs[] = {anyOutput(with.random), anyOutput(with.random)};
             client.unregisterOutputParameters(outputs, 2);
         }},
        {"unregisterAllOutputParameters", false, [](Client& client, With) { client.unregisterAllOutputParameters(); }},
        {"registerInputParameter", false,
         [](Client& client, With with) { client.registerInputParameter(anyInput(with.random)); }},
        {"registerInputParameters by pointer", false,
         [](Client& client, With with) {
             const CSClient::InputDef inputs[] = {anyInput(with.random), anyInput(with.random)};
             client.registerInputParameters(inputs, 2);
         }},
        {"registerInputParameters", false,
         [](Client& client, With with) {
             client.registerInputParameters({anyInput(with.random), anyInput(with.random)});
         }},
        {"waitForInputsToBeRegistered", false,
         [](Client& client, With with) { client.waitForInputsToBeRegistered(anySeconds(with.random)); }},
        {"unregisterInputParameter", false,
         [](Client& client, With with) { client.unregisterInputParameter(anyName(with.random)); }},
        {"unregisterInputParameters by name", false,
         [](Client& client, With with) {
             client.unregisterInputParameters(Names{anyName(with.random), anyName(with.random)});
         }},
        {"unregisterInputParameters by definition", false,
         [](Client& client, With with) {
             const CSClient::InputDef inputs[] = {anyInput(with.random), anyInput(with.random)};
             client.unregisterInputParameters(inputs, 2);
         }},
        {"unregisterAllInputParameters", false, [](Client& client, With) { client.unregisterAllInputParameters(); }},
        {"publishParameter", false, [](Client& client, With with) { client.publishParameter(anyValue(with.random)); }},
        {"publishParameters by pointer", false,
         [](Client& client, With with) {
             const CSClient::Parameter values[] = {anyValue(with.random), anyValue(with.random)};
             client.publishParameters(values, 2);
         }},
        {"publishParameters", false,
         [](Client& client, With with) {
             client.publishParameters({anyValue(with.random), anyValue(with.random)});
         }},
        {"findPublishedParameter", false,
         [](Client& client, With with) {
             CSClient::Parameter found;
             client.findPublishedParameter(anyName(with.random), found);
         }},
        {"getAllPublishedParameters", false,
         [](Client& client, With) {
             std::vector<CSClient::Parameter> all;
             client.getAllPublishedParameters(all);
         }},
        {"addCallbackInterface", false, [](Client& client, With with) { client.addCallbackInterface(with.spare); }},
        {"removeCallbackInterface", false,
         [](Client& client, With with) { client.removeCallbackInterface(with.spare); }},
        {"hasCallbackInterface", false, [](Client& client, With with) { client.hasCallbackInterface(with.spare); }},
        {"getNumCallbackInterfaces", false, [](Client& client, With) { client.getNumCallbackInterfaces(); }},
        {"getCallbackInterfaces", false,
         [](Client& client, With) {
             std::set<CSClient::CallbackIface*> interfaces;
             client.getCallbackInterfaces(interfaces);
         }},
    };
    return operations;
}

}  // namespace com_tesk::test
