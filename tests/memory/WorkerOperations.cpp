#include "tests/memory/Operations.h"

namespace com_tesk::test {

namespace {

constexpr unsigned int kOnce = 0;

/// Ready, with the engine's version response of before, three inputs and three outputs of which two are published.
void connectWithCallbacks(Scene& scene) {
    scene.connect();
    scene.engine.addCallbackInterface(&scene.callbacks[0]);
    scene.engine.addCallbackInterface(&scene.callbacks[1]);
    scene.registerInputs(3);
    scene.registerOutputs(3);
    scene.engine.publishParameters(scene.parameters.data(), 2, CSClientProtocol::PUBLISH_DEFAULT);
}

void connectWithConfirmed(Scene& scene) {
    connectWithCallbacks(scene);
    scene.receive(inputsConfirmed(scene, 3));
    scene.receive(outputsConfirmed(scene, 3));
}

template <std::string (*Body)(const Scene&, std::size_t)>
void prepareToReceive(Scene& scene) {
    connectWithCallbacks(scene);
    scene.transport->queueFrame(Body(scene, 3));
}

template <unsigned int Id>
void prepareVersion(Scene& scene) {
    connectWithConfirmed(scene);
    scene.transport->queueFrame(versionResponse(Id));
}

/// As a frame that could not be handled ends: the connection is lost, and comes back at the next turn.
void lose(Scene& scene) {
    scene.engine.closeConnection();
}

bool runOnce(Scene& scene) {
    return scene.engine.runOnceAsWorker() && scene.engine.getState() == CSClient::STATE_READY;
}

template <std::string (*Body)(const Scene&, std::size_t)>
bool leaveConfirmed(Scene& scene, unsigned int number) {
    if (number > 3) {
        return false;
    }
    // The frame that is queued is not what is received here.
    scene.engine.handleReceivedMessage([&scene, number] {
        const std::string body = Body(scene, number);
        return RawMessage(body.data(), static_cast<unsigned int>(body.size()), RawMessage::DATA);
    }());
    lose(scene);
    return true;
}

/// The connection stands again, and the host answers again.
template <std::string (*Body)(const Scene&, std::size_t)>
void recoverReceiving(Scene& scene) {
    if (scene.engine.getState() == CSClient::STATE_CONNECTING) {
        scene.engine.runOnceAsWorker();
    }
    scene.transport->dropReads();
    scene.transport->queueFrame(Body(scene, 3));
}

std::string update(const Scene& /*scene*/, std::size_t count) {
    return inputsUpdated(count);
}

/// What a connection that was lost and stands again has had confirmed once more.
void confirmAgain(Scene& scene) {
    if (scene.engine.getState() == CSClient::STATE_CONNECTING) {
        scene.engine.runOnceAsWorker();
    }
    scene.transport->dropReads();
    scene.receive(inputsConfirmed(scene, 3));
    scene.receive(outputsConfirmed(scene, 3));
}

void loseInputIds(Scene& scene) {
    scene.engine.reregisterAllInputParameters();
}

template <unsigned int Id>
bool leaveVersion(Scene& scene, unsigned int number) {
    if (number >= 1) {
        scene.engine.hostVersion().storeText(std::string(60, 'v'));
        scene.engine.setSimulatorId(Id);
    }
    if (number >= 2) {
        loseInputIds(scene);
    }
    lose(scene);
    return number <= 2;
}

template <unsigned int Id>
void recoverVersion(Scene& scene) {
    confirmAgain(scene);
    scene.engine.setSimulatorId(1);
    scene.transport->queueFrame(versionResponse(Id));
}

void loseConfirmed(Scene& scene) {
    connectWithConfirmed(scene);
    lose(scene);
}

void connectWithConfirmedOutputs(Scene& scene) {
    scene.connect();
    scene.registerOutputs(3);
    scene.receive(outputsConfirmed(scene, 3));
    scene.transport->failNextWrite = true;
}

/// Everything that a worker does in its life: connects, registers again, and receives one message of each kind.
void prepareLife(Scene& scene) {
    scene.registerInputs(3);
    scene.registerOutputs(3);
    scene.engine.addCallbackInterface(&scene.callbacks[0]);
    scene.engine.publishParameters(scene.parameters.data(), 2, CSClientProtocol::PUBLISH_DEFAULT);
    scene.callbacks[0].updated = 0;
    scene.transport->dropReads();
    scene.transport->queueFrame(versionResponse(7));
    scene.transport->queueFrame(inputsConfirmed(scene, 3));
    scene.transport->queueFrame(outputsConfirmed(scene, 3));
    scene.transport->queueFrame(inputsUpdated(3));
    scene.engine.beginConnecting();
}

bool live(Scene& scene) {
    CSClientProtocol::mainThread(&scene.engine);
    // Three values came with the confirmation, three with the update.
    return scene.callbacks[0].updated == 6;
}

/// However far it came, it ended in order.
bool leaveLife(Scene& scene, unsigned int number) {
    scene.engine.forceCloseConnection();
    scene.transport->dropReads();
    CSClientProtocol::mainThread(&scene.engine);
    if (number >= 1) {
        scene.engine.hostVersion().storeText(std::string(60, 'v'));
        scene.engine.setSimulatorId(7);
    }
    if (number >= 2) {
        scene.engine.hostVersion().storeProtocol(42);
    }
    return number <= 2;
}

}  // namespace

std::vector<Operation> workerOperations() {
    return {
        {"ReceivingASubscriptionResponse", Operation::MEMORY, kReconnect, prepareToReceive<inputsConfirmed>, runOnce,
         leaveConfirmed<inputsConfirmed>, recoverReceiving<inputsConfirmed>},
        {"ReceivingAPublishResponseAndPublishingAgain", Operation::MEMORY, kReconnect,
         prepareToReceive<outputsConfirmed>, runOnce, leaveConfirmed<outputsConfirmed>,
         recoverReceiving<outputsConfirmed>},
        {"ReceivingAnUpdate", Operation::MEMORY, kReconnect,
         [](Scene& scene) {
             connectWithConfirmed(scene);
             scene.transport->queueFrame(inputsUpdated(3));
         },
         runOnce, leaveConfirmed<update>,
         [](Scene& scene) {
             confirmAgain(scene);
             scene.transport->queueFrame(inputsUpdated(3));
         }},
        {"ReceivingAVersion", Operation::MEMORY, kReconnect, prepareVersion<1>, runOnce, leaveVersion<1>,
         recoverVersion<1>},
        {"ReceivingANewSimulatorId", Operation::MEMORY, kReconnect, prepareVersion<7>, runOnce, leaveVersion<7>,
         recoverVersion<7>},
        {"ReceivingAForeignMessage", Operation::MEMORY, kReconnect,
         [](Scene& scene) {
             connectWithCallbacks(scene);
             scene.transport->queueFrame(std::string(40, 'x'));
         },
         runOnce,
         [](Scene& scene, unsigned int number) {
             lose(scene);
             return number == 0;
         },
         [](Scene& scene) {
             if (scene.engine.getState() == CSClient::STATE_CONNECTING) {
                 scene.engine.runOnceAsWorker();
             }
             scene.transport->dropReads();
             scene.transport->queueFrame(std::string(40, 'x'));
         }},
        {"RegisteringEverythingAgain", Operation::MEMORY, kReconnect, loseConfirmed, runOnce,
         [](Scene& scene, unsigned int number) {
             loseInputIds(scene);
             return number == 0;
         },
         [](Scene& scene) {
             if (scene.engine.getState() == CSClient::STATE_READY) {
                 lose(scene);
             }
         }},
        {"TheWholeLifeOfAWorker", Operation::MEMORY, kOnce, prepareLife, live, leaveLife, prepareLife},
        {"LosingTheConnection", Operation::MEMORY, kReconnect, connectWithConfirmed,
         [](Scene& scene) {
             scene.engine.runOnceAsWorker();
             return scene.engine.getState() == CSClient::STATE_CONNECTING;
         },
         nullptr, confirmAgain},
        {"AWriteThatFails", Operation::MEMORY, kReconnect, connectWithConfirmedOutputs,
         [](Scene& scene) {
             return scene.engine.publishParameters(scene.parameters.data(), 3, CSClientProtocol::PUBLISH_DEFAULT) == 2;
         },
         // The values are stored, and the connection knows of nothing yet.
         [](Scene& scene, unsigned int number) {
             scene.transport->failNextWrite = false;
             scene.engine.publishParameters(scene.parameters.data(), 3, CSClientProtocol::PUBLISH_DEFAULT);
             return number == 0;
         },
         [](Scene& scene) {
             scene.transport->failNextWrite = false;
             if (scene.engine.getState() == CSClient::STATE_CONNECTING) {
                 scene.engine.runOnceAsWorker();
             }
             scene.transport->failNextWrite = true;
         }},
        {"EndingTheConnection", Operation::NO_MEMORY, kOnce,
         [](Scene& scene) {
             connectWithConfirmed(scene);
             scene.engine.forceCloseConnection();
         },
         [](Scene& scene) {
             CSClientProtocol::mainThread(&scene.engine);
             return scene.engine.getState() == CSClient::STATE_DISCONNECTED;
         },
         nullptr, nullptr},
    };
}

}  // namespace com_tesk::test
