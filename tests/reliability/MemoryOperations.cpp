#include "tests/reliability/MemoryFixture.h"

namespace com_tesk::test {

namespace {

using Fixture = MemoryFixture;

void doNothing(Fixture& /*fixture*/) {}

void connectAndConfirmTwo(Fixture& on) {
    on.connectWithParameters();
    on.confirm(2);
}

void connectWithSecond(Fixture& on) {
    on.connect();
    on.registerParameters(ParameterKind::INPUTS, 1, 1);
    on.registerParameters(ParameterKind::OUTPUTS, 1, 1);
}

/// Operations that exist for inputs and for outputs.
void addOperationsOf(ParameterKind kind, const std::string& plural, std::vector<MemoryOperation>& operations) {
    const bool areInputs = kind == ParameterKind::INPUTS;
    const auto registerAll = [kind](Fixture& on) { return on.registerParameters(kind, 0, 3) == 0; };
    // The parameters before the one that memory did not suffice for stay.
    const auto leaveSome = [kind](Fixture& on, unsigned int number) { on.registerParameters(kind, 0, number); };
    const auto removeAll = [kind](Fixture& on) { on.unregister(kind, on.names); };
    operations.insert(
        operations.end(),
        {{"Registering" + plural, 0, &Fixture::connect, registerAll, 4, leaveSome, removeAll},
         {"Registering" + plural + "BeforeConnecting", CSClient::OPTION_SILENT, doNothing, registerAll, 4, leaveSome,
          removeAll},
         {"Registering" + plural + "OfWhichTheSecondIsRefused", 0, connectWithSecond, registerAll, 1,
          [kind](Fixture& on, unsigned int /*number*/) { on.registerParameters(kind, 0, 1); },
          [kind](Fixture& on) { on.unregister(kind, {on.names[0]}); }},
         {"Unregistering" + plural, 0, connectAndConfirmTwo,
          [kind](Fixture& on) { return on.unregister(kind, on.names) == 0; }},
         {"UnregisteringAll" + plural, 0, connectAndConfirmTwo, succeedAfter([areInputs](Fixture& on) {
              areInputs ? on.engine.unregisterAllInputParameters() : on.engine.unregisterAllOutputParameters();
          })},
         {"Reregistering" + plural, 0, connectAndConfirmTwo, succeedAfter([areInputs](Fixture& on) {
              areInputs ? on.engine.reregisterAllInputParameters() : on.engine.reregisterAllOutputParameters();
          })}});
}

void registerAndPublishOutputs(Fixture& on) {
    on.registerParameters(ParameterKind::OUTPUTS, 0, 3);
    on.publish(0, 3);
}

void addInterface(Fixture& on) {
    on.engine.addCallbackInterface(&on.callbacks[1]);
}

void addInterfaces(Fixture& on) {
    on.engine.addCallbackInterface(&on.callbacks[0]);
    on.engine.addCallbackInterface(&on.callbacks[1]);
}

void stayOpen(Fixture& on) {
    on.transport->staysOpen = true;
    addInterface(on);
}

bool openAndWait(Fixture& on) {
    return on.engine.openConnection(1, 1, nullptr) == 0 && on.waitFor(CSClient::STATE_READY);
}

bool closeAndWait(Fixture& on) {
    on.engine.forceCloseConnection();
    return on.waitFor(CSClient::STATE_DISCONNECTED);
}

/// Makes a message whose next byte needs memory.
void fillMessage(Fixture& on) {
    on.message.clear();
    on.message.shrink_to_fit();
    on.message.write("0123456789", 10);
    on.message.shrink_to_fit();
}

void makeClient(Fixture& on) {
    on.client = std::make_unique<SimClient>(1, CSClient::OPTION_SILENT);
    on.client->registerOutputParameters(on.outputs);
    on.client->registerInputParameters(on.inputs);
}

MemoryOperation appending(const std::string& name, const MemoryOperation::Step& append) {
    return {name, 0, fillMessage, succeedAfter(append), 0, {}, fillMessage};
}

MemoryOperation withoutMemory(const std::string& name, unsigned int options, const MemoryOperation::Step& prepare,
                              const std::function<bool(Fixture&)>& call, const MemoryOperation::Step& recover = {}) {
    return {name, options, prepare, call, 0, {}, recover, false};
}

}  // namespace

std::vector<MemoryOperation> tableOperations() {
    std::vector<MemoryOperation> operations = {
        {"Publishing", 0, connectAndConfirmTwo, [](Fixture& on) { return on.publish(0, 3) == 0; }},
        {"PublishingWhatIsUnknown", 0, connectWithSecond, [](Fixture& on) { return on.publish(1, 2) == 0; }},
        withoutMemory("RemovingEverything", 0, connectAndConfirmTwo,
                      succeedAfter([](Fixture& on) { on.engine.unregisterAllLocalParameters(); })),
    };
    addOperationsOf(ParameterKind::INPUTS, "Inputs", operations);
    addOperationsOf(ParameterKind::OUTPUTS, "Outputs", operations);
    return operations;
}

std::vector<MemoryOperation> otherOperations() {
    return {
        {"ConstructingAnEngine", 0, doNothing,
         succeedAfter([](Fixture& on) { on.otherEngine = std::make_unique<MemoryEngine>(3U); })},
        {"ConstructingAClient", 0, doNothing,
         succeedAfter([](Fixture& on) { on.client = std::make_unique<SimClient>(1U, 3U); })},
        {"AddingTheFirstInterface", 0, doNothing, succeedAfter(addInterface)},
        {"AddingAnotherInterface", 0, addInterface,
         succeedAfter([](Fixture& on) { on.engine.addCallbackInterface(&on.callbacks[2]); })},
        {"RemovingAnInterface", 0, addInterfaces,
         [](Fixture& on) { return on.engine.removeCallbackInterface(&on.callbacks[0]) == 0; }},
        {"RemovingTheLastInterface", 0, addInterface,
         [](Fixture& on) { return on.engine.removeCallbackInterface(&on.callbacks[1]) == 0; }},
        {"ListingTheInterfaces", 0, addInterfaces,
         [](Fixture& on) { return on.engine.getCallbackInterfaces(on.interfaces) == 0; }, 1,
         [](Fixture& on, unsigned int /*number*/) { on.interfaces.insert(&on.callbacks[0]); }},
        {"FindingAPublishedValue", 0, registerAndPublishOutputs,
         [](Fixture& on) { return on.engine.findPublishedParameter(on.names[1], on.found); }},
        {"ListingThePublishedValues", 0, registerAndPublishOutputs,
         succeedAfter([](Fixture& on) { on.engine.getAllPublishedParameters(on.listed); }), 4,
         [](Fixture& on, unsigned int number) {
             on.engine.getAllPublishedParameters(on.listed);
             on.listed.resize(number);
         },
         [](Fixture& on) { on.listed.clear(); }},
        {"GettingTheServerVersion", 0, [](Fixture& on) { on.engine.hostVersion().storeText(std::string(60, 'v')); },
         succeedAfter([](Fixture& on) { on.text = on.engine.getServerVersion(); })},
        withoutMemory("GettingTheServersAddress", 0, doNothing,
                      [](Fixture& on) {
                          on.text = on.engine.getServerIPAddress();
                          return on.text == "0.0.0.0";
                      }),
        withoutMemory("Counting", 0, registerAndPublishOutputs,
                      [](Fixture& on) {
                          return on.engine.getNumberOfOutputParameters(false) == 3 &&
                                 on.engine.getNumberOfInputParameters(true) == 0 &&
                                 on.engine.getNumberOfOutputParametersWaitingForConfirmation() == 3 &&
                                 on.engine.hasOutputParameter(on.names[2], false) &&
                                 on.engine.getNumCallbackInterfaces() == 0;
                      }),
        appending("AppendingAByte", [](Fixture& on) { on.message.write(static_cast<unsigned char>('a')); }),
        appending("AppendingANumber", [](Fixture& on) { on.message.write(0x61626364U); }),
        appending("AppendingBytes", [](Fixture& on) { on.message.write("abcdefghijklmnopqrstuvwxyz", 26); }),
        {"MakingAMessageOfBytes", 0, doNothing, succeedAfter([](Fixture& on) {
             on.otherMessage = std::make_unique<RawMessage>("abc", 3U, RawMessage::DATA);
         })},
        {"CopyingAMessage", 0, fillMessage,
         succeedAfter([](Fixture& on) { on.otherMessage = std::make_unique<RawMessage>(on.message); })},
        {"AssigningAMessage", 0,
         [](Fixture& on) {
             fillMessage(on);
             on.otherMessage = std::make_unique<RawMessage>(RawMessage::DATA);
         },
         succeedAfter([](Fixture& on) { *on.otherMessage = on.message; })},
        {"SendingAMessage", kAutoReconnect,
         [](Fixture& on) {
             on.connect();
             fillMessage(on);
         },
         [](Fixture& on) { return on.engine.sendMessage(on.message) == 0; }},
        withoutMemory("SendingWithoutAConnection", kAutoReconnect, fillMessage,
                      [](Fixture& on) { return on.engine.sendMessage(on.message) == 1; }),
        withoutMemory("Opening", 0, stayOpen, openAndWait, closeAndWait),
        withoutMemory(
            "Closing", 0,
            [](Fixture& on) {
                stayOpen(on);
                openAndWait(on);
            },
            closeAndWait),
        {"UnregisteringByDefinition", 0, makeClient,
         [](Fixture& on) { return on.client->unregisterOutputParameters(on.outputs.data(), 3) == 0; }},
        {"UnregisteringByName", 0, makeClient,
         [](Fixture& on) { return on.client->unregisterInputParameter(on.names[1]) == 0; }},
    };
}

}  // namespace com_tesk::test
