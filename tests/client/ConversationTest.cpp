// Whole exchanges of clients with a loopback host, and the bytes of each exchange with a scripted host.

#include "tests/client/ClientFixtures.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using Kind = HostEvent::Kind;

TEST(Conversation, VersionAndPublishedValuesArrive) {
    HostOptions options;
    options.versionText = std::string(128, 'v');  // It fills its field.
    options.protocolVersion = 77;
    const LoopbackHost host(options);
    LoopbackSession pilot(host);
    ASSERT_EQ(pilot.client.registerOutputParameters({output("ALT"), output("GEAR", CSClient::TYPE_INT)}), 0);
    ASSERT_TRUE(pilot.callbacks.waitFor("outputs confirmed ALT GEAR"));
    EXPECT_EQ(pilot.client.getServerVersion(), options.versionText) << "the version request was sent first";
    EXPECT_EQ(pilot.client.getProtocolVersion(), 77U);
    EXPECT_TRUE(pilot.client.waitForOutputsToBeRegistered(1));
    EXPECT_TRUE(pilot.client.isOutputParameterRegistered("ALT"));
    ASSERT_EQ(pilot.client.publishParameters({floatParameter("ALT", 12.5F), intParameter("GEAR", -3)}), 0);
    EXPECT_TRUE(host.waitForValue("ALT", HostValue::real(12.5F), kHostBound));
    EXPECT_TRUE(host.waitForValue("GEAR", HostValue::integer(-3), kHostBound));
}

TEST(Conversation, ValuesPublishedBeforeTheConfirmationAndInsideACallbackArrive) {
    const LoopbackHost host({});
    RecordingCallbacks publishing;
    LoopbackSession pilot(host);
    publishing.onLine = [&pilot](const std::string& line) {
        if (line == "outputs confirmed B") {
            EXPECT_EQ(pilot.client.publishParameter(floatParameter("B", 4.5F)), 0);
        }
    };
    pilot.client.addCallbackInterface(&publishing);
    pilot.client.registerOutputParameter(output("A"));
    ASSERT_EQ(pilot.client.publishParameter(floatParameter("A", 12.5F)), 0);
    EXPECT_TRUE(host.waitForValue("A", HostValue::real(12.5F), kHostBound));
    pilot.client.registerOutputParameter(output("B"));
    EXPECT_TRUE(host.waitForValue("B", HostValue::real(4.5F), kHostBound));
}

TEST(Conversation, InputsBeginWithTheHostsValuesAndFollowAnotherClient) {
    HostOptions options;
    options.initialValues = {{"ALT", HostValue::real(1.5F)}, {"GEAR", HostValue::integer(-3)}};
    const LoopbackHost host(options);
    LoopbackSession watcher(host, kSilent, 1);
    ASSERT_EQ(watcher.client.registerInputParameters({input("ALT"), input("GEAR", CSClient::TYPE_INT, 3)}), 0);
    EXPECT_TRUE(watcher.callbacks.waitFor("inputs confirmed ALT GEAR"));
    EXPECT_TRUE(watcher.callbacks.waitFor("updated ALT=float:1.5 GEAR=int:-3"));
    EXPECT_TRUE(watcher.client.waitForInputsToBeRegistered(1));
    LoopbackSession pilot(host, kSilent, 2);
    pilot.client.registerOutputParameters({output("ALT"), output("GEAR", CSClient::TYPE_INT)});
    ASSERT_TRUE(pilot.callbacks.waitFor("outputs confirmed ALT GEAR"));
    pilot.client.publishParameter(floatParameter("ALT", 12.5F));
    EXPECT_TRUE(watcher.callbacks.waitFor("updated ALT=float:12.5"));
    pilot.client.publishParameters({floatParameter("ALT", 13.5F), intParameter("GEAR", -2147483647 - 1)});
    EXPECT_TRUE(watcher.callbacks.waitFor("updated ALT=float:13.5 GEAR=int:-2147483648"));
}

TEST(Conversation, UnregisteredParametersEndAtTheHost) {
    HostEvents events;
    HostOptions options;
    options.eventSink = events.sink();
    LoopbackHost host(options);
    LoopbackSession session(host);
    session.client.registerInputParameters({input("A"), input("B")});
    session.client.registerOutputParameters({output("C"), output("D")});
    ASSERT_TRUE(session.callbacks.waitFor("inputs confirmed A B"));
    ASSERT_TRUE(session.callbacks.waitFor("outputs confirmed C D"));
    ASSERT_EQ(session.client.unregisterInputParameter("A"), 0);
    ASSERT_TRUE(host.waitForSubscribers("A", 0, kHostBound));
    EXPECT_EQ(session.client.getNumberOfRegisteredInputParameters(), 1);
    host.setValue("A", HostValue::real(1.5F));
    host.setValue("B", HostValue::real(2.5F));
    ASSERT_TRUE(session.callbacks.waitFor("updated B=float:2.5"));
    EXPECT_FALSE(session.callbacks.waitFor("updated A=float:1.5", 1, std::chrono::milliseconds(0)));
    ASSERT_EQ(session.client.unregisterOutputParameter("C"), 0);
    EXPECT_TRUE(events.waitFor(Kind::OUTPUT_UNREGISTERED, "C"));
    EXPECT_EQ(events.count(Kind::OUTPUT_UNREGISTERED, "D"), 0);
    session.client.unregisterAllOutputParameters();
    EXPECT_TRUE(events.waitFor(Kind::OUTPUT_UNREGISTERED, "D"));
    EXPECT_EQ(events.count(Kind::REQUEST_IGNORED), 0);
}

TEST(Conversation, AssignedSimulatorIdIsUsedToRegisterEverythingAgain) {
    HostEvents events;
    HostOptions options;
    options.assignId = 1234;
    options.eventSink = events.sink();
    const LoopbackHost host(options);
    SimClient client(1, kSilent);
    useTransportUnderTest(client);
    client.registerOutputParameter(output("OUT"));
    client.registerInputParameter(input("IN"));
    client.publishParameter(floatParameter("OUT", 1.0F));
    ASSERT_EQ(client.open("127.0.0.1", host.port(), nullptr), 0);
    EXPECT_TRUE(events.waitFor(Kind::OUTPUT_CONFIRMED, "OUT", 2));
    EXPECT_TRUE(events.waitFor(Kind::INPUT_CONFIRMED, "IN", 2));
    EXPECT_EQ(events.count(Kind::CONNECTED), 1) << "the connection stays";
    EXPECT_TRUE(host.waitForValue("OUT", HostValue::real(1.0F), kHostBound));
    std::uint32_t lastId = 0;
    for (const HostEvent& event : events.all()) {
        if (event.kind == Kind::SIMULATOR_ID_CHANGED) {
            lastId = event.id;
        }
    }
    EXPECT_EQ(lastId, 1234U);
}

const std::string kOutputRequest =
    "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 05 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 "
    "41 4C 54 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

const std::string kPublishRequest =
    "04 02 7F FF 00 00 00 24 00 7F 00 03 00 05 00 00 00 00 00 00 00 00 00 01 "
    "00 00 00 07 00 00 00 00 41 48 00 00";

/// A silent client, which prints nothing in any of the tests.
class Wire : public testing::Test {
  protected:
    ~Wire() override { EXPECT_EQ(streams.out() + streams.err(), ""); }

    const CapturedStreams streams;
    ScriptedSession session{kSilent, 5};
    SimClient& client = *session.client;
};

TEST_F(Wire, OutputIsRegisteredPublishedAndUnregistered) {
    ASSERT_NO_FATAL_FAILURE(session.connect());
    ASSERT_EQ(client.registerOutputParameter(output("ALT")), 0);
    EXPECT_EQ(session.peer->receiveBody(), kOutputRequest);
    session.peer->send(hexFrame(outputsConfirmed({{7, "ALT"}})));
    ASSERT_TRUE(session.callbacks.waitFor("outputs confirmed ALT"));
    EXPECT_TRUE(client.waitForOutputsToBeRegistered(1));
    ASSERT_EQ(client.publishParameter(floatParameter("ALT", 12.5F)), 0);
    EXPECT_EQ(session.peer->receiveBody(), kPublishRequest);
    ASSERT_EQ(client.unregisterOutputParameter("ALT"), 0);
    EXPECT_EQ(session.peer->receiveBody(), "04 02 7F FF 00 00 00 18 00 7F 00 05 00 05 00 00 00 00 00 01 00 00 00 07");
}

TEST_F(Wire, InputIsSubscribedUpdatedAndUnsubscribed) {
    ASSERT_NO_FATAL_FAILURE(session.connect());
    ASSERT_EQ(client.registerInputParameter(input("A", CSClient::TYPE_INT, 3)), 0);
    EXPECT_EQ(session.peer->receiveBody(),
              "04 02 7F FF 00 00 00 40 00 7F 00 01 00 05 00 00 00 00 00 01 "
              "00 01 D4 C0 00 01 D4 C0 00 00 00 01 "
              "41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    session.peer->send(hexFrame(inputConfirmation(1, {confirmedInput(9, 0, "3F C0 00 00", "A")})));
    ASSERT_TRUE(session.callbacks.waitFor("updated A=float:1.5"));
    EXPECT_TRUE(client.isInputParameterRegistered("A"));
    session.peer->send(hexFrame(update(1, {updated(9, 1, "FF FF FF FE")})));
    EXPECT_TRUE(session.callbacks.waitFor("updated A=int:-2"));
    ASSERT_EQ(client.unregisterInputParameter("A"), 0);
    EXPECT_EQ(session.peer->receiveBody(), "04 02 7F FF 00 00 00 18 00 7F 00 04 00 05 00 00 00 00 00 01 00 00 00 09");
}

TEST_F(Wire, ParametersRegisteredBeforeOpenReachTheHostUntilClose) {
    ASSERT_EQ(client.registerOutputParameter(output("ALT")), 0);
    ASSERT_EQ(client.publishParameter(floatParameter("ALT", 12.5F)), 0);
    ASSERT_NO_FATAL_FAILURE(session.connect());
    EXPECT_EQ(session.peer->receiveBody(), kOutputRequest);
    session.peer->send(hexFrame(outputsConfirmed({{7, "ALT"}})));
    EXPECT_EQ(session.peer->receiveBody(), kPublishRequest);
    ASSERT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    ASSERT_NO_FATAL_FAILURE(session.connect());
    EXPECT_EQ(session.versionRequest, hexFrame("04 02 7F FF 00 00 00 14 00 7F 00 06 00 05 00 00 00 00 00 00"));
    EXPECT_TRUE(session.peer->isQuietFor(std::chrono::milliseconds(200))) << "closing has erased the registrations";
}

}  // namespace
}  // namespace com_tesk::test
