#include "tests/cancellation/Operations.h"

#include <set>
#include <string>

namespace com_tesk::test {

namespace {

const std::vector<Situation> kWriting = {Situation::READY, Situation::FAILING_WRITES, Situation::HALVED_WRITES};
const std::vector<Situation> kWritingSometimes = {Situation::READY, Situation::FAILING_WRITES, Situation::HALVED_WRITES,
                                                  Situation::CLOSED, Situation::CONNECTING};
const std::vector<Situation> kAnywhere = {Situation::READY, Situation::CLOSED, Situation::CONNECTING};
const std::vector<Situation> kWithWorker = {Situation::READY, Situation::CONNECTING};
const std::vector<Situation> kReady = {Situation::READY};
const std::vector<Situation> kClosed = {Situation::CLOSED};

const CSClient::InputDef kInputs[] = {{"IN2", CSClient::TYPE_INT, 1}, {"IN3", CSClient::TYPE_FLOAT, 3}};
const CSClient::OutputDef kOutputs[] = {{"OUT2", CSClient::TYPE_INT}, {"OUT3", CSClient::TYPE_FLOAT}};

CSClient::Parameter valueOf(const std::string& name) {
    CSClient::Parameter parameter{name, {}, CSClient::TYPE_INT, 0};
    parameter.value.asInt = 5;
    return parameter;
}

/// The body of a request that a host takes: for the version.
RawMessage versionRequest() {
    static constexpr unsigned char kBody[] = {0x04, 0x02, 0x7F, 0xFF, 0x00, 0x00, 0x00, 0x14, 0x00, 0x7F,
                                              0x00, 0x06, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    RawMessage message(RawMessage::DATA);
    message.insert(message.end(), std::begin(kBody), std::end(kBody));
    return message;
}

void query(Scene& scene) {
    const CSClient& client = *scene.client;
    client.getServerVersion();
    client.getServerIPAddress();
    client.getNumberOfRegisteredInputParameters();
    client.getNumberOfUnregisteredInputParameters();
    client.getNumberOfRegisteredOutputParameters();
    client.getNumberOfUnregisteredOutputParameters();
    client.isInputParameterRegistered("IN");
    client.isOutputParameterRegistered("OUT");
    CSClient::Parameter found;
    client.findPublishedParameter("OUT", found);
    std::vector<CSClient::Parameter> all;
    client.getAllPublishedParameters(all);
    client.getConnectionState();
    client.getNumCallbackInterfaces();
}

void changeInterfaces(Scene& scene) {
    CancellableCallbacks others;
    scene.client->addCallbackInterface(&others);
    scene.client->hasCallbackInterface(&others);
    std::set<CSClient::CallbackIface*> interfaces;
    scene.client->getCallbackInterfaces(interfaces);
    scene.client->removeCallbackInterface(&others);
}

/// Deletes it when it is not taken, or the thread is cancelled first.
void changeTransport(Scene& scene) {
    std::unique_ptr<CSCommsInterfaceTCP> transport(newTransport(scene.isBuffered));
    if (scene.client->changeCommsInterface(transport.get())) {
        static_cast<void>(transport.release());
    }
}

/// Its whole life on the thread, so that its destructor runs in any case.
void useAnotherClient(Scene& scene) {
    OpenClient other(scene.options);
    other.registerOutputParameter({"OTHER", CSClient::TYPE_INT});
    other.addCallbackInterface(&scene.callbacks);
    other.open(kHostAddress, scene.host.port(), nullptr);
    other.waitForConnectionState(CSClient::STATE_READY, 3);
    other.close();
}

/// Contains no cancellation point but those of the destructor.
void destroyAnotherClient(Scene& scene) {
    OpenClient other(scene.options);
    other.open(kHostAddress, scene.host.port(), nullptr);
    other.addCallbackInterface(&scene.callbacks);
}

}  // namespace

std::vector<SweptOperation> sweptOperations() {
    return {
        {"RegisteringInputs", [](Scene& scene) { scene.client->registerInputParameters(kInputs, 2); },
         kWritingSometimes},
        {"RegisteringOutputs", [](Scene& scene) { scene.client->registerOutputParameters(kOutputs, 2); },
         kWritingSometimes},
        {"RegisteringTwice",
         [](Scene& scene) {
             scene.client->registerOutputParameter({"OUT", 1});
         },
         kReady},
        {"UnregisteringAnInput", [](Scene& scene) { scene.client->unregisterInputParameter("IN"); }, kWriting},
        {"UnregisteringAnOutput", [](Scene& scene) { scene.client->unregisterOutputParameter("OUT"); }, kWriting},
        {"UnregisteringAllInputs", [](Scene& scene) { scene.client->unregisterAllInputParameters(); }, kWriting},
        {"UnregisteringAllOutputs", [](Scene& scene) { scene.client->unregisterAllOutputParameters(); }, kWriting},
        {"Publishing", [](Scene& scene) { scene.client->publishParameter(valueOf("OUT")); }, kWritingSometimes},
        {"PublishingTheUnknown", [](Scene& scene) { scene.client->publishParameter(valueOf("NONE")); }, kReady},
        {"SendingAMessage", [](Scene& scene) { scene.client->sendMessage(versionRequest()); }, kWritingSometimes},
        {"RequestingTheVersion", [](Scene& scene) { scene.client->engineInside().requestSimulatorVersion(); },
         kWriting},
        {"ReregisteringInputs", [](Scene& scene) { scene.client->engineInside().reregisterAllInputParameters(); },
         kWriting},
        {"ReregisteringOutputs", [](Scene& scene) { scene.client->engineInside().reregisterAllOutputParameters(); },
         kWriting},
        {"Opening", [](Scene& scene) { scene.open(); }, kAnywhere, SweptOperation::OPENS},
        {"Closing", [](Scene& scene) { scene.client->close(); }, kAnywhere, SweptOperation::CLOSES},
        {"RequestingTheEnd", [](Scene& scene) { scene.client->engineInside().forceCloseConnection(); }, kWithWorker,
         SweptOperation::CLOSES},
        {"GivingTheConnectionUp", [](Scene& scene) { scene.client->engineInside().closeConnection(); }, kWithWorker,
         SweptOperation::LOSES},
        {"WaitingForAState",
         [](Scene& scene) { scene.client->waitForConnectionState(CSClient::STATE_RECONNECTING, 3); }, kAnywhere},
        {"WaitingForOutputs", [](Scene& scene) { scene.client->waitForOutputsToBeRegistered(3); }, kClosed},
        {"WaitingForInputs", [](Scene& scene) { scene.client->waitForInputsToBeRegistered(3); }, kClosed},
        {"ChangingTheTransport", changeTransport, kAnywhere},
        {"ChangingInterfaces", changeInterfaces, kReady},
        {"Querying", query, kReady},
        {"UsingAnotherClient", useAnotherClient, kClosed},
        {"DestroyingAnotherClient", destroyAnotherClient, kClosed},
    };
}

const char* nameOf(Situation situation) {
    switch (situation) {
        case Situation::READY:
            return "Ready";
        case Situation::FAILING_WRITES:
            return "FailingWrites";
        case Situation::HALVED_WRITES:
            return "HalvedWrites";
        case Situation::CLOSED:
            return "Closed";
        case Situation::CONNECTING:
            return "Connecting";
    }
    return "";
}

}  // namespace com_tesk::test
