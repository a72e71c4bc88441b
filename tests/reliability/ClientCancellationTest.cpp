// Cancels an application thread at every cancellation point of every operation of a client.

#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "tests/reliability/CancellationFixture.h"

namespace com_tesk::test {
namespace {

using Fixture = CancellationFixture;
using Writes = ThreadScript::Writes;

/// The state of the client in which an operation runs.
struct Situation {
    enum Connection { READY, CLOSED, CONNECTING };

    const char* name;
    Connection connection;
    Writes writes = Writes::WHOLE;
};

using Situations = std::vector<Situation>;

const Situation kReady = {"Ready", Situation::READY};
const Situation kFailingWrites = {"FailingWrites", Situation::READY, Writes::FAILING};
const Situation kHalvedWrites = {"HalvedWrites", Situation::READY, Writes::HALVED};
const Situation kClosed = {"Closed", Situation::CLOSED};
/// The host refuses connections. With `OPTION_AUTO_RECONNECT` only.
const Situation kConnecting = {"Connecting", Situation::CONNECTING};

const Situations kWriting = {kReady, kFailingWrites, kHalvedWrites};
const Situations kAll = {kReady, kFailingWrites, kHalvedWrites, kClosed, kConnecting};
const Situations kUnwritten = {kReady, kClosed, kConnecting};
const Situations kOnlyReady = {kReady};
const Situations kOnlyClosed = {kClosed};
const Situations kOpened = {kReady, kConnecting};

struct CancelledOperation {
    enum Effect {
        NONE,
        OPENS,
        CLOSES,  ///< also when it is cancelled
        LOSES,   ///< ends the connection, but with `OPTION_AUTO_RECONNECT` another follows
    };

    const char* name;
    void (*call)(Fixture& fixture);
    Situations situations;
    Effect effect = NONE;
};

const CSClient::InputDef kInputs[] = {{"IN2", CSClient::TYPE_INT, 1}, {"IN3", CSClient::TYPE_FLOAT, 3}};
const CSClient::OutputDef kOutputs[] = {{"OUT2", CSClient::TYPE_INT}, {"OUT3", CSClient::TYPE_FLOAT}};

void changeInterfaces(Fixture& fixture) {
    HookedCallbacks others;
    others.onStateChange = fixture.callbacks.onStateChange;
    fixture.client->addCallbackInterface(&others);
    fixture.client->hasCallbackInterface(&others);
    std::set<CSClient::CallbackIface*> interfaces;
    fixture.client->getCallbackInterfaces(interfaces);
    fixture.client->removeCallbackInterface(&others);
}

/// Deletes the transport when it is refused, or when the thread is cancelled first.
void changeTransport(Fixture& fixture) {
    std::unique_ptr<CSCommsInterfaceTCP> transport(fixture.kind.newTransport());
    if (fixture.client->changeCommsInterface(transport.get())) {
        static_cast<void>(transport.release());
    }
}

void useAnotherClient(Fixture& fixture) {
    OpenClient other(fixture.options);
    other.registerOutputParameter({"OTHER", CSClient::TYPE_INT});
    other.addCallbackInterface(&fixture.callbacks);
    fixture.open(other);
    other.waitForConnectionState(CSClient::STATE_READY, 3);
    other.close();
}

/// Contains no cancellation point but those of the destructor.
void destroyAnotherClient(Fixture& fixture) {
    OpenClient other(fixture.options);
    fixture.open(other);
    other.addCallbackInterface(&fixture.callbacks);
}

std::vector<CancelledOperation> cancelledOperations() {
    return {
        {"RegisteringInputs", [](Fixture& on) { on.client->registerInputParameters(kInputs, 2); }, kAll},
        {"RegisteringOutputs", [](Fixture& on) { on.client->registerOutputParameters(kOutputs, 2); }, kAll},
        {"RegisteringTwice", [](Fixture& on) { on.client->registerOutputParameter(output("OUT")); }, kOnlyReady},
        {"UnregisteringAnInput", [](Fixture& on) { on.client->unregisterInputParameter("IN"); }, kWriting},
        {"UnregisteringAnOutput", [](Fixture& on) { on.client->unregisterOutputParameter("OUT"); }, kWriting},
        {"UnregisteringAllInputs", [](Fixture& on) { on.client->unregisterAllInputParameters(); }, kWriting},
        {"UnregisteringAllOutputs", [](Fixture& on) { on.client->unregisterAllOutputParameters(); }, kWriting},
        {"Publishing", [](Fixture& on) { on.client->publishParameter(intParameter("OUT", 5)); }, kAll},
        {"PublishingTheUnknown", [](Fixture& on) { on.client->publishParameter(intParameter("NONE", 5)); }, kOnlyReady},
        {"SendingAMessage",
         [](Fixture& on) {
             on.client->sendMessage(messageOf(hex("04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00")));
         },
         kAll},
        {"RequestingTheVersion", [](Fixture& on) { on.client->probed->requestSimulatorVersion(); }, kWriting},
        {"ReregisteringInputs", [](Fixture& on) { on.client->probed->reregisterAllInputParameters(); }, kWriting},
        {"ReregisteringOutputs", [](Fixture& on) { on.client->probed->reregisterAllOutputParameters(); }, kWriting},
        {"Opening", [](Fixture& on) { on.open(*on.client); }, kUnwritten, CancelledOperation::OPENS},
        {"Closing", [](Fixture& on) { on.client->close(); }, kUnwritten, CancelledOperation::CLOSES},
        {"RequestingTheEnd", [](Fixture& on) { on.client->probed->forceCloseConnection(); }, kOpened,
         CancelledOperation::CLOSES},
        {"GivingTheConnectionUp", [](Fixture& on) { on.client->probed->closeConnection(); }, kOpened,
         CancelledOperation::LOSES},
        {"WaitingForAState", [](Fixture& on) { on.client->waitForConnectionState(CSClient::STATE_RECONNECTING, 3); },
         kUnwritten},
        {"WaitingForOutputs", [](Fixture& on) { on.client->waitForOutputsToBeRegistered(3); }, kOnlyClosed},
        {"WaitingForInputs", [](Fixture& on) { on.client->waitForInputsToBeRegistered(3); }, kOnlyClosed},
        {"ChangingTheTransport", changeTransport, kUnwritten},
        {"ChangingInterfaces", changeInterfaces, kOnlyReady},
        {"Querying", [](Fixture& on) { callQueries(*on.client); }, kOnlyReady},
        {"UsingAnotherClient", useAnotherClient, kOnlyClosed},
        {"DestroyingAnotherClient", destroyAnotherClient, kOnlyClosed},
    };
}

struct Case {
    CancelledOperation operation;
    Situation situation;
    TransportKind kind;
    bool reconnects;

    std::string name() const {
        return std::string(operation.name) + situation.name + kind.name + (reconnects ? "Reconnecting" : "");
    }
    // What a failed test prints.
    friend void PrintTo(const Case& printed, std::ostream* stream) { *stream << printed.name(); }
};

std::vector<Case> allCases() {
    std::vector<Case> cases;
    for (const CancelledOperation& operation : cancelledOperations()) {
        for (const Situation& situation : operation.situations) {
            for (const TransportKind& kind : {kStandard, kBuffered}) {
                if (situation.connection != Situation::CONNECTING) {
                    cases.push_back({operation, situation, kind, false});
                }
                cases.push_back({operation, situation, kind, true});
            }
        }
    }
    return cases;
}

class ClientCancellation : public testing::TestWithParam<Case> {
  protected:
    static const CancelledOperation& operation() { return GetParam().operation; }
    static const Situation& situation() { return GetParam().situation; }

    void prepare() {
        fixture.makeClient();
        if (situation().connection == Situation::READY) {
            fixture.connect();
        } else if (situation().connection == Situation::CONNECTING) {
            ASSERT_EQ(fixture.client->open(kHostAddress, fixture.refusingPort.number(), nullptr), 0);
        }
        connections = fixture.connections();
    }

    void expectClosed() const {
        EXPECT_TRUE(fixture.client->waitForState(CSClient::STATE_DISCONNECTED)) << fixture.client->getConnectionState();
    }

    /// Expects that the connection is lost, renewed or unchanged, as the thread should have left it.
    void expectConnection(const ApplicationThread& thread) {
        const std::string point = thread.script.lastPoint;
        const bool isCancelled = !thread.hasReturned();
        if (operation().effect == CancelledOperation::OPENS) {
            if (situation().connection == Situation::CLOSED && isCancelled) {
                EXPECT_EQ(fixture.client->getConnectionState(), CSClient::STATE_DISCONNECTED);
            }
            return;
        }
        if (operation().effect == CancelledOperation::CLOSES) {
            // The operation waits for a lock that the worker holds, before it closes.
            if (!isCancelled || point != "nanosleep") {
                expectClosed();
            }
            return;
        }
        if (situation().connection != Situation::READY) {
            return;
        }
        const bool isCancelledInWrite = isCancelled && (point == "write" || point == "send" || point == "poll");
        const bool isLost = operation().effect == CancelledOperation::LOSES || isCancelledInWrite ||
                            (situation().writes == Writes::FAILING && thread.script.writeCalls > 0);
        if (isLost && !fixture.reconnects()) {
            expectClosed();
            return;
        }
        if (isLost) {
            EXPECT_TRUE(waitUntil([this] { return fixture.connections() > connections; })) << "no new connection";
        } else {
            EXPECT_EQ(fixture.connections(), connections);
        }
        fixture.expectToRegisterPublishAndReceive();
    }

    /// Returns whether the operation has that cancellation point.
    bool cancelAt(int point) {
        prepare();
        ApplicationThread thread([this] { operation().call(fixture); });
        thread.script.cancelAt = point;
        thread.script.writes = situation().writes;
        thread.run();
        SCOPED_TRACE(thread.text());
        fixture.expectNoLockIsHeld();
        expectConnection(thread);
        fixture.expectToCloseAndOpenAgain();
        fixture.client.reset();
        fixture.expectWholeFrames();
        return thread.script.points >= point;
    }

    Fixture fixture{GetParam().kind, GetParam().reconnects ? CSClient::OPTION_AUTO_RECONNECT : 0U};
    int connections = 0;
};

TEST_P(ClientCancellation, LeavesAWorkingClient) {
    cancelAtEachPoint([this](int point) { return cancelAt(point); });
}

INSTANTIATE_TEST_SUITE_P(In, ClientCancellation, testing::ValuesIn(allCases()),
                         [](const auto& tested) { return tested.param.name(); });

}  // namespace
}  // namespace com_tesk::test
