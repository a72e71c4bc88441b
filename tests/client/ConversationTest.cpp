#include <gtest/gtest.h>

#include <thread>

#include "tests/client/Conversation.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

using Kind = HostEvent::Kind;

TEST(Conversation, AnOutputIsConfirmedAndItsFloatArrives) {
    const LoopbackHost host({});
    Participant pilot(host);
    ASSERT_EQ(pilot.client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT}), 0);
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed ALT"));
    EXPECT_TRUE(pilot.client.waitForOutputsToBeRegistered(1));
    EXPECT_TRUE(pilot.client.isOutputParameterRegistered("ALT"));
    ASSERT_EQ(pilot.client.publishParameter(floatParameter("ALT", 12.5F)), 0);
    EXPECT_TRUE(host.waitForValue("ALT", HostValue::real(12.5F), kPatience));
}

TEST(Conversation, AnIntegerArrivesAsAnInteger) {
    const LoopbackHost host({});
    Participant pilot(host);
    pilot.client.registerOutputParameter({"GEAR", CSClient::TYPE_INT});
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed GEAR"));
    ASSERT_EQ(pilot.client.publishParameter(intParameter("GEAR", -3)), 0);
    EXPECT_TRUE(host.waitForValue("GEAR", HostValue::integer(-3), kPatience));
}

TEST(Conversation, AValuePublishedBeforeTheConfirmationArrives) {
    const LoopbackHost host({});
    Participant pilot(host);
    pilot.client.registerOutputParameter({"ALT", CSClient::TYPE_FLOAT});
    ASSERT_EQ(pilot.client.publishParameter(floatParameter("ALT", 12.5F)), 0);
    EXPECT_TRUE(host.waitForValue("ALT", HostValue::real(12.5F), kPatience));
}

TEST(Conversation, AnInputBeginsWithTheHostsCurrentValue) {
    HostOptions options;
    options.initialValues = {{"ALT", HostValue::real(1.5F)}, {"GEAR", HostValue::integer(-3)}};
    const LoopbackHost host(options);
    Participant watcher(host);
    ASSERT_EQ(
        watcher.client.registerInputParameters({{"ALT", CSClient::TYPE_FLOAT, 1}, {"GEAR", CSClient::TYPE_INT, 1}}), 0);
    EXPECT_TRUE(watcher.heard.waitFor("inputs confirmed ALT GEAR"));
    EXPECT_TRUE(watcher.heard.waitFor("updated ALT=float:1.5 GEAR=int:-3"));
    EXPECT_TRUE(watcher.client.waitForInputsToBeRegistered(1));
}

TEST(Conversation, AnInputFollowsWhatASecondClientPublishes) {
    const LoopbackHost host({});
    Participant watcher(host, 1);
    watcher.client.registerInputParameters({{"ALT", CSClient::TYPE_FLOAT, 1}, {"GEAR", CSClient::TYPE_INT, 3}});
    ASSERT_TRUE(watcher.heard.waitFor("inputs confirmed ALT GEAR"));
    Participant pilot(host, 2);
    pilot.client.registerOutputParameters({{"ALT", CSClient::TYPE_FLOAT}, {"GEAR", CSClient::TYPE_INT}});
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed ALT GEAR"));
    pilot.client.publishParameter(floatParameter("ALT", 12.5F));
    EXPECT_TRUE(watcher.heard.waitFor("updated ALT=float:12.5"));
    pilot.client.publishParameters({floatParameter("ALT", 13.5F), intParameter("GEAR", -2147483647 - 1)});
    EXPECT_TRUE(watcher.heard.waitFor("updated ALT=float:13.5 GEAR=int:-2147483648"));
}

TEST(Conversation, AnUnregisteredInputIsNotUpdatedAnyMore) {
    LoopbackHost host({});
    Participant watcher(host);
    watcher.client.registerInputParameters({{"A", CSClient::TYPE_FLOAT, 1}, {"B", CSClient::TYPE_FLOAT, 1}});
    ASSERT_TRUE(watcher.heard.waitFor("inputs confirmed A B"));
    ASSERT_EQ(watcher.client.unregisterInputParameter("A"), 0);
    ASSERT_TRUE(host.waitForSubscribers("A", 0, kPatience));
    EXPECT_EQ(watcher.client.getNumberOfRegisteredInputParameters(), 1);
    host.setValue("A", HostValue::real(1.5F));
    host.setValue("B", HostValue::real(2.5F));
    ASSERT_TRUE(watcher.heard.waitFor("updated B=float:2.5"));
    EXPECT_FALSE(watcher.heard.waitFor("updated A=float:1.5", 1, std::chrono::milliseconds(0)));
}

TEST(Conversation, TheHostHearsOfAnUnregisteredOutput) {
    HostDiary diary;
    HostOptions options;
    options.eventSink = diary.sink();
    const LoopbackHost host(options);
    Participant pilot(host);
    pilot.client.registerOutputParameters({{"A", CSClient::TYPE_FLOAT}, {"B", CSClient::TYPE_FLOAT}});
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed A B"));
    ASSERT_EQ(pilot.client.unregisterOutputParameter("A"), 0);
    EXPECT_TRUE(diary.waitFor(Kind::OUTPUT_UNREGISTERED, "A"));
    EXPECT_EQ(diary.count(Kind::OUTPUT_UNREGISTERED, "B"), 0);
    pilot.client.unregisterAllOutputParameters();
    EXPECT_TRUE(diary.waitFor(Kind::OUTPUT_UNREGISTERED, "B"));
    EXPECT_EQ(diary.count(Kind::REQUEST_IGNORED), 0);
}

TEST(Conversation, TheHostsVersionArrives) {
    HostOptions options;
    options.versionText = "loopback 1.2";
    options.protocolVersion = 77;
    const LoopbackHost host(options);
    Participant pilot(host);
    pilot.client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    // Answered after the version request, which came first.
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed A"));
    EXPECT_EQ(pilot.client.getServerVersion(), "loopback 1.2");
    EXPECT_EQ(pilot.client.getProtocolVersion(), 77U);
}

TEST(Conversation, AVersionTextThatFillsItsFieldArrivesWhole) {
    HostOptions options;
    options.versionText = std::string(128, 'v');
    const LoopbackHost host(options);
    Participant pilot(host);
    pilot.client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed A"));
    EXPECT_EQ(pilot.client.getServerVersion(), std::string(128, 'v'));
}

TEST(Conversation, AnAssignedSimulatorIdIsUsedFromThenOn) {
    HostDiary diary;
    HostOptions options;
    options.assignId = 1234;
    options.eventSink = diary.sink();
    const LoopbackHost host(options);
    Participant pilot(host, 1);
    pilot.client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    ASSERT_TRUE(pilot.heard.waitFor("outputs confirmed A"));
    pilot.client.publishParameter(floatParameter("A", 1.0F));
    ASSERT_TRUE(host.waitForValue("A", HostValue::real(1.0F), kPatience));
    EXPECT_EQ(diary.ids(Kind::SIMULATOR_ID_CHANGED).back(), 1234U);
}

TEST(Conversation, AnAssignedSimulatorIdRegistersEverythingAgain) {
    HostDiary diary;
    HostOptions options;
    options.assignId = 1234;
    options.eventSink = diary.sink();
    const LoopbackHost host(options);
    SimClient client(1, CSClient::OPTION_SILENT);
    useTransportUnderTest(client);
    client.registerOutputParameter({"OUT", CSClient::TYPE_FLOAT});
    client.registerInputParameter({"IN", CSClient::TYPE_FLOAT, 1});
    ASSERT_EQ(client.open("127.0.0.1", host.port(), nullptr), 0);
    EXPECT_TRUE(diary.waitFor(Kind::OUTPUT_CONFIRMED, "OUT", 2));
    EXPECT_TRUE(diary.waitFor(Kind::INPUT_CONFIRMED, "IN", 2));
    EXPECT_EQ(diary.count(Kind::CONNECTED), 1) << "the connection stays";
}

/// Publishes as soon as the host has confirmed, on the client's own thread.
class PublishingCallbacks : public RecordingCallbacks {
  public:
    explicit PublishingCallbacks(CSClient& publishing) : client(publishing) {}

    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
        for (const CSClient::OutputDef& output : outputs) {
            EXPECT_EQ(client.publishParameter(floatParameter(output.name, 4.5F)), 0);
        }
    }

  private:
    CSClient& client;
};

TEST(Conversation, AValueMayBePublishedInsideACallback) {
    const LoopbackHost host({});
    Participant pilot(host);
    PublishingCallbacks publishing(pilot.client);
    pilot.client.addCallbackInterface(&publishing);
    pilot.client.registerOutputParameter({"A", CSClient::TYPE_FLOAT});
    EXPECT_TRUE(host.waitForValue("A", HostValue::real(4.5F), kPatience));
    pilot.client.close();
}

TEST(Conversation, FiveHundredParametersMakeTheWholeRound) {
    const LoopbackHost host({});
    Participant watcher(host, 1);
    Participant pilot(host, 2);
    std::vector<CSClient::InputDef> inputs;
    std::vector<CSClient::OutputDef> outputs;
    std::vector<CSClient::Parameter> values;
    std::string updated = "updated";
    for (int i = 0; i < 500; ++i) {
        const std::string name = "parameter " + std::to_string(i);
        inputs.push_back({name, CSClient::TYPE_INT, 1});
        outputs.push_back({name, CSClient::TYPE_INT});
        values.push_back(intParameter(name, i * 1000));
        updated += " " + name + "=int:" + std::to_string(i * 1000);
    }
    ASSERT_EQ(watcher.client.registerInputParameters(inputs), 0);
    ASSERT_TRUE(watcher.client.waitForInputsToBeRegistered(5));
    ASSERT_EQ(pilot.client.registerOutputParameters(outputs), 0);
    ASSERT_TRUE(pilot.client.waitForOutputsToBeRegistered(5));
    ASSERT_EQ(pilot.client.publishParameters(values), 0);
    EXPECT_TRUE(watcher.heard.waitFor(updated));
    EXPECT_EQ(pilot.client.getNumberOfRegisteredOutputParameters(), 500);
    EXPECT_EQ(watcher.client.getNumberOfUnregisteredInputParameters(), 0);
}

TEST(Conversation, ManyThreadsPublishThroughOneClient) {
    const LoopbackHost host({});
    Participant pilot(host);
    for (const char* const name : {"A", "B", "C"}) {
        pilot.client.registerOutputParameter({name, CSClient::TYPE_INT});
    }
    ASSERT_TRUE(pilot.client.waitForOutputsToBeRegistered(5));
    std::vector<std::thread> threads;
    for (const char* const name : {"A", "B", "C"}) {
        threads.emplace_back([&pilot, name] {
            for (int i = 0; i <= 200; ++i) {
                EXPECT_EQ(pilot.client.publishParameter(intParameter(name, i)), 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const char* const name : {"A", "B", "C"}) {
        EXPECT_TRUE(host.waitForValue(name, HostValue::integer(200), kPatience)) << name;
    }
}

}  // namespace
}  // namespace com_tesk::test
