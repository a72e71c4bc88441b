#include <utility>

#include "tests/reliability/MemoryFixture.h"

namespace com_tesk::test {

namespace {

using Fixture = MemoryFixture;
using Step = MemoryOperation::Step;
using Body = std::function<std::string(const Fixture&)>;

constexpr ParameterKind kInputs = ParameterKind::INPUTS;
constexpr ParameterKind kOutputs = ParameterKind::OUTPUTS;

/// Ready, with three inputs and three outputs, of which two are published.
void connectWithCallbacks(Fixture& on) {
    on.connectWithParameters();
    on.engine.addCallbackInterface(&on.callbacks[0]);
    on.engine.addCallbackInterface(&on.callbacks[1]);
    on.publish(0, 2);
}

void connectAndConfirm(Fixture& on) {
    connectWithCallbacks(on);
    on.confirm(3);
}

/// Reconnects after a lost connection, and has everything confirmed again.
void confirmAgain(Fixture& on) {
    on.reconnect();
    on.confirm(3);
}

/// A frame that the worker could not handle ends the connection.
void lose(Fixture& on) {
    on.engine.closeConnection();
}

bool runOnce(Fixture& on) {
    return on.engine.runOnceAsWorker() && on.engine.getState() == CSClient::STATE_READY;
}

/// After a preparation, the host has sent a message.
Step withMessage(const Step& prepare, const Body& body) {
    return [prepare, body](Fixture& on) {
        prepare(on);
        on.transport->queueFrame(body(on));
    };
}

/// A message whose first records may have been handled before memory ran out.
MemoryOperation receivingRecords(const std::string& name, const Step& prepare, const Step& recover,
                                 const std::function<std::string(const Fixture&, unsigned int)>& bodyOf) {
    const Body whole = [bodyOf](const Fixture& on) { return bodyOf(on, 3); };
    return {name,
            kAutoReconnect,
            withMessage(prepare, whole),
            runOnce,
            4,
            [bodyOf](Fixture& on, unsigned int number) {
                on.handle(bodyOf(on, number));
                lose(on);
            },
            withMessage(recover, whole)};
}

MemoryOperation receivingConfirmation(const std::string& name, ParameterKind kind) {
    return receivingRecords(name, connectWithCallbacks, &Fixture::reconnect,
                            [kind](const Fixture& on, unsigned int count) { return on.confirmation(kind, count); });
}

/// Stores what a version response of simulator `id` contains.
void storeVersion(Fixture& on, unsigned int id) {
    on.engine.hostVersion().storeText(std::string(60, 'v'));
    on.engine.setSimulatorId(id);
}

MemoryOperation receivingVersion(const std::string& name, unsigned int id) {
    const Body body = [id](const Fixture& /*on*/) { return Fixture::versionOf(id); };
    return {name,
            kAutoReconnect,
            withMessage(connectAndConfirm, body),
            runOnce,
            3,
            [id](Fixture& on, unsigned int number) {
                if (number >= 1) {
                    storeVersion(on, id);
                }
                if (number >= 2) {
                    on.engine.reregisterAllInputParameters();
                }
                lose(on);
            },
            withMessage(
                [](Fixture& on) {
                    confirmAgain(on);
                    on.engine.setSimulatorId(1);
                },
                body)};
}

/// The worker connects, registers everything and receives one message of each kind.
void prepareWholeConnection(Fixture& on) {
    on.registerParameters(kInputs, 0, 3);
    on.registerParameters(kOutputs, 0, 3);
    on.engine.addCallbackInterface(&on.callbacks[0]);
    on.publish(0, 2);
    on.callbacks[0].updated = 0;
    on.transport->dropReads();
    on.transport->queueFrame(Fixture::versionOf(7));
    on.transport->queueFrame(on.confirmation(kInputs, 3));
    on.transport->queueFrame(on.confirmation(kOutputs, 3));
    on.transport->queueFrame(Fixture::updateOf(3));
    on.engine.beginConnecting();
}

void leaveEndedConnection(Fixture& on, unsigned int number) {
    on.engine.forceCloseConnection();
    on.transport->dropReads();
    CSClientProtocol::mainThread(&on.engine);
    if (number >= 1) {
        storeVersion(on, 7);
    }
    if (number >= 2) {
        on.engine.hostVersion().storeProtocol(42);
    }
}

}  // namespace

std::vector<MemoryOperation> workerOperations() {
    const Body foreign = [](const Fixture& /*on*/) { return hexField(std::string(40, 'x'), 40); };
    return {
        receivingConfirmation("ReceivingASubscriptionResponse", kInputs),
        receivingConfirmation("ReceivingAPublishResponseAndPublishingAgain", kOutputs),
        receivingRecords("ReceivingAnUpdate", connectAndConfirm, confirmAgain,
                         [](const Fixture& /*on*/, unsigned int count) { return Fixture::updateOf(count); }),
        receivingVersion("ReceivingAVersion", 1),
        receivingVersion("ReceivingANewSimulatorId", 7),
        {"ReceivingAForeignMessage", kAutoReconnect, withMessage(connectWithCallbacks, foreign), runOnce, 1,
         [](Fixture& on, unsigned int /*number*/) { lose(on); }, withMessage(&Fixture::reconnect, foreign)},
        {"RegisteringEverythingAgain", kAutoReconnect,
         [](Fixture& on) {
             connectAndConfirm(on);
             lose(on);
         },
         runOnce, 1, [](Fixture& on, unsigned int /*number*/) { on.engine.reregisterAllInputParameters(); },
         [](Fixture& on) {
             if (on.engine.getState() == CSClient::STATE_READY) {
                 lose(on);
             }
         }},
        {"RunningAWholeConnection", 0, prepareWholeConnection,
         [](Fixture& on) {
             CSClientProtocol::mainThread(&on.engine);
             // Three values came with the confirmation, three with the update.
             return on.callbacks[0].updated == 6;
         },
         3, leaveEndedConnection, prepareWholeConnection},
        {"LosingTheConnection",
         kAutoReconnect,
         connectAndConfirm,
         [](Fixture& on) {
             on.engine.runOnceAsWorker();
             return on.engine.getState() == CSClient::STATE_CONNECTING;
         },
         0,
         {},
         confirmAgain},
        {"FailingToWrite", kAutoReconnect,
         [](Fixture& on) {
             on.connect();
             on.registerParameters(kOutputs, 0, 3);
             on.receive(on.confirmation(kOutputs, 3));
             on.transport->failNextWrite = true;
         },
         [](Fixture& on) { return on.publish(0, 3) == 2; }, 1,
         // The values are stored, and the connection is not lost yet.
         [](Fixture& on, unsigned int /*number*/) {
             on.transport->failNextWrite = false;
             on.publish(0, 3);
         },
         [](Fixture& on) {
             on.transport->failNextWrite = false;
             on.reconnect();
             on.transport->failNextWrite = true;
         }},
        {"EndingTheConnection",
         0,
         [](Fixture& on) {
             connectAndConfirm(on);
             on.engine.forceCloseConnection();
         },
         [](Fixture& on) {
             CSClientProtocol::mainThread(&on.engine);
             return on.engine.getState() == CSClient::STATE_DISCONNECTED;
         },
         0,
         {},
         {},
         false},
    };
}

}  // namespace com_tesk::test
