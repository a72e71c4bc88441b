#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <memory>
#include <thread>

#include "client/SimClient.h"
#include "tests/client/CountedSleeps.h"
#include "tests/client/GatedTransport.h"
#include "tests/client/ProbedClient.h"
#include "tests/client/Stopwatch.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

/// Counts how often it is destroyed, and in which state.
class MortalEngine : public TestEngine {
  public:
    explicit MortalEngine(unsigned int optionFlags) : TestEngine(1, optionFlags) {}
    ~MortalEngine() override {
        ++deaths;
        stateAtDeath = getState();
    }

    static int deaths;
    static CSClient::State stateAtDeath;
};

int MortalEngine::deaths = 0;
CSClient::State MortalEngine::stateAtDeath = CSClient::STATE_RECONNECTING;

using MortalClient = ClientOf<MortalEngine>;

void waitForTheEnd(const CSClientProtocol& engine) {
    const Stopwatch watch;
    while (engine.getState() != CSClient::STATE_DISCONNECTED && watch.seconds() < 10.0) {
        std::this_thread::yield();
    }
}

/// How often the destruction of a client sleeps, when `meanwhile` happens in these sleeps.
template <typename Client>
int sleepsToDestroy(std::unique_ptr<Client> client, const std::function<void(int)>& meanwhile = {}) {
    const CountedSleeps sleeps(meanwhile);
    client.reset();
    return sleeps.count();
}

TEST(Destruction, AClientThatWasNeverOpenedIsDestroyedAtOnce) {
    EXPECT_EQ(sleepsToDestroy(std::make_unique<SimClient>(1, CSClient::OPTION_SILENT)), 0);
}

TEST(Destruction, TheEngineIsDeletedOnceThroughItsVirtualDestructor) {
    MortalEngine::deaths = 0;
    std::make_unique<MortalClient>().reset();
    EXPECT_EQ(MortalEngine::deaths, 1);
    EXPECT_EQ(MortalEngine::stateAtDeath, CSClient::STATE_DISCONNECTED);
}

TEST(Destruction, ThroughTheBaseClassTheWholeClientGoes) {
    MortalEngine::deaths = 0;
    std::unique_ptr<CSClient> client = std::make_unique<MortalClient>();
    EXPECT_EQ(MortalEngine::deaths, 0);
    client.reset();
    EXPECT_EQ(MortalEngine::deaths, 1);
}

TEST(Destruction, AnOpenConnectionIsClosedFirst) {
    MortalEngine::deaths = 0;
    RecordingCallbacks callbacks;
    auto client = std::make_unique<MortalClient>();
    client->addCallbackInterface(&callbacks);
    client->open(kAnyAddress, 1, nullptr);
    ASSERT_TRUE(callbacks.waitFor("state 2->4"));
    client.reset();
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_EQ(MortalEngine::deaths, 1);
    EXPECT_EQ(MortalEngine::stateAtDeath, CSClient::STATE_DISCONNECTED);
}

TEST(Destruction, ItWaitsForTheWorkerBeyondTheTwoSecondsOfClose) {
    Gate gate;
    RecordingCallbacks callbacks;
    auto client = std::make_unique<MortalClient>();
    client->probed->changeCommsInterface(new GatedTransport(gate));
    client->addCallbackInterface(&callbacks);
    client->open(kAnyAddress, 1, nullptr);
    ASSERT_TRUE(gate.waitUntilReached());
    const CSClientProtocol& engine = *client->probed;
    const int sleeps = sleepsToDestroy(std::move(client), [&](int sleep) {
        if (sleep == 4) {
            EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
            gate.open();
            waitForTheEnd(engine);
        }
    });
    EXPECT_EQ(sleeps, 4);
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST(Destruction, ItWaitsForAConnectUnderWay) {
    Gate gate;
    RecordingCallbacks callbacks;
    auto client = std::make_unique<MortalClient>();
    client->addCallbackInterface(&callbacks);
    client->probed->fakeTransport().onOpen = [&gate] { return gate.pass(); };
    client->open(kAnyAddress, 1, nullptr);
    ASSERT_TRUE(gate.waitUntilReached());
    const CSClientProtocol& engine = *client->probed;
    const int sleeps = sleepsToDestroy(std::move(client), [&](int sleep) {
        if (sleep == 3) {
            gate.open();
            waitForTheEnd(engine);
        }
    });
    EXPECT_EQ(sleeps, 3);
    EXPECT_EQ(callbacks.states(), "0->1 1->3 3->0");
}

TEST(Destruction, AHostThatGoesOnAfterStallingInAMessageLetsTheDestructorEnd) {
    ScriptedHost host;
    RecordingCallbacks callbacks;
    auto client = std::make_unique<SimClient>(1, CSClient::OPTION_SILENT);
    useTransportUnderTest(*client);
    client->addCallbackInterface(&callbacks);
    client->open(ScriptedHost::address(), host.port(), nullptr);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    peer->receiveFrame();
    peer->send("00 00 00 2C 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF 04");
    // One receive time-out, so that the worker stands in the middle of the body.
    EXPECT_FALSE(client->waitForConnectionState(CSClient::STATE_DISCONNECTED, 1));
    std::future<void> destruction = std::async(std::launch::async, [&client] { client.reset(); });
    ASSERT_TRUE(callbacks.waitFor("state 4->3"));
    EXPECT_EQ(destruction.wait_for(std::chrono::milliseconds(2500)), std::future_status::timeout);
    peer->close();
    EXPECT_EQ(destruction.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
}

TEST(Destruction, ARetryingClientIsDestroyedWithoutAWord) {
    const CapturedStreams streams;
    {
        SimClient client(1, CSClient::OPTION_AUTO_RECONNECT);
        useTransportUnderTest(client);
        client.open(ScriptedHost::address(), refusingPort(), nullptr);
        EXPECT_FALSE(client.waitForConnectionState(CSClient::STATE_READY, 1));
    }
    EXPECT_EQ(streams.out(), "");
    EXPECT_EQ(streams.err(), "");
}

TEST(Destruction, TheHostSeesTheEndOfTheConnection) {
    ScriptedHost host;
    auto client = std::make_unique<SimClient>(1, CSClient::OPTION_SILENT);
    useTransportUnderTest(*client);
    client->open(ScriptedHost::address(), host.port(), nullptr);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    client.reset();
    EXPECT_TRUE(peer->waitForEnd());
}

TEST(Destruction, RegistrationsThatNeverReachedAHostAreFreed) {
    SimClient client(1, CSClient::OPTION_SILENT);
    EXPECT_EQ(client.registerOutputParameter({"A", CSClient::TYPE_FLOAT}), 0);
    EXPECT_EQ(client.registerInputParameter({"B", CSClient::TYPE_FLOAT, 1}), 0);
}

}  // namespace
}  // namespace com_tesk::test
