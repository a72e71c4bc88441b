#include "tests/memory/Operations.h"

namespace com_tesk::test {

namespace {

void prepareNothing(Scene& /*scene*/) {}

void prepareOutputs(Scene& scene) {
    scene.registerOutputs(3);
    scene.engine.publishParameters(scene.parameters.data(), 3, CSClientProtocol::PUBLISH_DEFAULT);
}

void prepareInterface(Scene& scene) {
    scene.engine.addCallbackInterface(&scene.callbacks[1]);
}

void prepareInterfaces(Scene& scene) {
    scene.engine.addCallbackInterface(&scene.callbacks[0]);
    scene.engine.addCallbackInterface(&scene.callbacks[1]);
}

/// A message whose next byte needs memory.
void prepareMessage(Scene& scene) {
    scene.message.write("0123456789", 10);
    scene.message.shrink_to_fit();
}

void prepareSending(Scene& scene) {
    scene.connect();
    prepareMessage(scene);
}

void prepareClient(Scene& scene) {
    scene.client = std::make_unique<SimClient>(1, CSClient::OPTION_SILENT);
    scene.client->registerOutputParameters(scene.outputs);
    scene.client->registerInputParameters(scene.inputs);
}

void dropMessage(Scene& scene) {
    scene.message.clear();
    scene.message.shrink_to_fit();
    prepareMessage(scene);
}

void closeAgain(Scene& scene) {
    scene.engine.forceCloseConnection();
    scene.waitFor(CSClient::STATE_DISCONNECTED);
}

}  // namespace

std::vector<Operation> otherOperations() {
    return {
        {"ConstructingAnEngine", Operation::MEMORY, kNoOptions, prepareNothing,
         [](Scene& scene) {
             scene.otherEngine = std::make_unique<MemoryEngine>(3U);
             return true;
         },
         nullptr, nullptr},
        {"ConstructingAClient", Operation::MEMORY, kNoOptions, prepareNothing,
         [](Scene& scene) {
             scene.client = std::make_unique<SimClient>(1U, 3U);
             return true;
         },
         nullptr, nullptr},
        {"AddingTheFirstInterface", Operation::MEMORY, kNoOptions, prepareNothing,
         [](Scene& scene) {
             scene.engine.addCallbackInterface(&scene.callbacks[0]);
             return true;
         },
         nullptr, nullptr},
        {"AddingAnotherInterface", Operation::MEMORY, kNoOptions, prepareInterface,
         [](Scene& scene) {
             scene.engine.addCallbackInterface(&scene.callbacks[2]);
             return true;
         },
         nullptr, nullptr},
        {"RemovingAnInterface", Operation::MEMORY, kNoOptions, prepareInterfaces,
         [](Scene& scene) { return scene.engine.removeCallbackInterface(&scene.callbacks[0]) == 0; }, nullptr, nullptr},
        {"RemovingTheLastInterface", Operation::MEMORY, kNoOptions, prepareInterface,
         [](Scene& scene) { return scene.engine.removeCallbackInterface(&scene.callbacks[1]) == 0; }, nullptr, nullptr},
        {"ListingTheInterfaces", Operation::MEMORY, kNoOptions, prepareInterfaces,
         [](Scene& scene) { return scene.engine.getCallbackInterfaces(scene.interfaces) == 0; },
         // What there is of the list is of no use.
         [](Scene& scene, unsigned int number) {
             if (number == 1) {
                 scene.interfaces.insert(&scene.callbacks[0]);
             }
             return number <= 1;
         },
         nullptr},
        {"AskingForAPublishedValue", Operation::MEMORY, kNoOptions, prepareOutputs,
         [](Scene& scene) { return scene.engine.findPublishedParameter(scene.names[1], scene.found); }, nullptr,
         nullptr},
        {"ListingThePublishedValues", Operation::MEMORY, kNoOptions, prepareOutputs,
         [](Scene& scene) {
             scene.engine.getAllPublishedParameters(scene.listed);
             return true;
         },
         [](Scene& scene, unsigned int number) {
             scene.engine.getAllPublishedParameters(scene.listed);
             scene.listed.resize(number);
             return number <= 3;
         },
         [](Scene& scene) { scene.listed.clear(); }},
        {"AskingForTheServerVersion", Operation::MEMORY, kNoOptions,
         [](Scene& scene) { scene.engine.hostVersion().storeText(std::string(60, 'v')); },
         [](Scene& scene) {
             scene.text = scene.engine.getServerVersion();
             return true;
         },
         nullptr, nullptr},
        {"AskingForTheServersAddress", Operation::NO_MEMORY, kNoOptions, prepareNothing,
         [](Scene& scene) {
             scene.text = scene.engine.getServerIPAddress();
             return scene.text == "0.0.0.0";
         },
         nullptr, nullptr},
        {"Counting", Operation::NO_MEMORY, kNoOptions, prepareOutputs,
         [](Scene& scene) {
             const MemoryEngine& engine = scene.engine;
             return engine.getNumberOfOutputParameters(false) == 3 && engine.getNumberOfInputParameters(true) == 0 &&
                    engine.getNumberOfOutputParametersWaitingForConfirmation() == 3 &&
                    engine.hasOutputParameter(scene.names[2], false) && engine.getNumCallbackInterfaces() == 0;
         },
         nullptr, nullptr},
        {"AppendingAByte", Operation::MEMORY, kNoOptions, prepareMessage,
         [](Scene& scene) {
             scene.message.write(static_cast<unsigned char>('a'));
             return true;
         },
         nullptr, dropMessage},
        {"AppendingANumber", Operation::MEMORY, kNoOptions, prepareMessage,
         [](Scene& scene) {
             scene.message.write(0x61626364U);
             return true;
         },
         nullptr, dropMessage},
        {"AppendingBytes", Operation::MEMORY, kNoOptions, prepareMessage,
         [](Scene& scene) {
             scene.message.write("abcdefghijklmnopqrstuvwxyz", 26);
             return true;
         },
         nullptr, dropMessage},
        {"MakingAMessageOfBytes", Operation::MEMORY, kNoOptions, prepareNothing,
         [](Scene& scene) {
             scene.otherMessage = std::make_unique<RawMessage>("abc", 3U, RawMessage::DATA);
             return true;
         },
         nullptr, nullptr},
        {"CopyingAMessage", Operation::MEMORY, kNoOptions, prepareMessage,
         [](Scene& scene) {
             scene.otherMessage = std::make_unique<RawMessage>(scene.message);
             return true;
         },
         nullptr, nullptr},
        {"AssigningAMessage", Operation::MEMORY, kNoOptions,
         [](Scene& scene) {
             prepareMessage(scene);
             scene.otherMessage = std::make_unique<RawMessage>(RawMessage::DATA);
         },
         [](Scene& scene) {
             *scene.otherMessage = scene.message;
             return true;
         },
         nullptr, nullptr},
        {"SendingAMessage", Operation::MEMORY, kReconnect, prepareSending,
         [](Scene& scene) { return scene.engine.sendMessage(scene.message) == 0; }, nullptr, nullptr},
        {"SendingWithoutAConnection", Operation::NO_MEMORY, kReconnect, prepareMessage,
         [](Scene& scene) { return scene.engine.sendMessage(scene.message) == 1; }, nullptr, nullptr},
        {"Opening", Operation::NO_MEMORY, kNoOptions,
         [](Scene& scene) {
             scene.transport->staysOpen = true;
             scene.engine.addCallbackInterface(&scene.callbacks[0]);
         },
         [](Scene& scene) {
             return scene.engine.openConnection(1, 1, nullptr) == 0 && scene.waitFor(CSClient::STATE_READY);
         },
         nullptr, closeAgain},
        {"Closing", Operation::NO_MEMORY, kNoOptions,
         [](Scene& scene) {
             scene.transport->staysOpen = true;
             scene.engine.openConnection(1, 1, nullptr);
             scene.waitFor(CSClient::STATE_READY);
         },
         [](Scene& scene) {
             scene.engine.forceCloseConnection();
             return scene.waitFor(CSClient::STATE_DISCONNECTED);
         },
         nullptr, nullptr},
        {"UnregisteringByDefinition", Operation::MEMORY, kNoOptions, prepareClient,
         [](Scene& scene) { return scene.client->unregisterOutputParameters(scene.outputs.data(), 3) == 0; }, nullptr,
         nullptr},
        {"UnregisteringByName", Operation::MEMORY, kNoOptions, prepareClient,
         [](Scene& scene) { return scene.client->unregisterInputParameter(scene.names[1]) == 0; }, nullptr, nullptr},
    };
}

}  // namespace com_tesk::test
