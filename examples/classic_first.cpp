#include <client/SimClient.h>
#include <comms/CSCommsInterfaceTCPBuffered.h>

#include <iostream>

using com_tesk::CSClient;

struct Printer : CSClient::CallbackIface {
    void connectionStateChanged(CSClient::State, CSClient::State) override {}
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>&) override {}
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>&) override {}
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        for (const auto& parameter : parameters) {
            std::cout << parameter.name << " = ";
            if (parameter.type == CSClient::TYPE_INT) {
                std::cout << parameter.value.asInt << "\n";
            } else {
                std::cout << parameter.value.asFloat << "\n";
            }
        }
    }
};

int main() {
    Printer printer;
    com_tesk::SimClient client(/*simulatorId=*/1, CSClient::OPTION_AUTO_RECONNECT);
    client.changeCommsInterface(new com_tesk::CSCommsInterfaceTCPBuffered);  // Whole frames and bounded waits.
    client.addCallbackInterface(&printer);
    client.registerOutputParameter({"altitude", CSClient::TYPE_FLOAT});
    client.registerInputParameter({"altitude", CSClient::TYPE_FLOAT, /*subscriptionMode=*/1});
    client.open("127.0.0.1", 55580, nullptr);
    if (!client.waitForConnectionState(CSClient::STATE_READY, 5) || !client.waitForOutputsToBeRegistered(5)) {
        return 1;
    }
    client.publishParameter({"altitude", {1234.5F}, CSClient::TYPE_FLOAT});
    client.waitForConnectionState(CSClient::STATE_DISCONNECTED, 2);  // Two seconds in which values arrive.
    client.close();
}
