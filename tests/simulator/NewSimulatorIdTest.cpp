#include <gtest/gtest.h>

#include "tests/support/HostMessages.h"
#include "tests/simulator/ReadyEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

const std::string kNameA =
    "41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
const std::string kNameB =
    "42 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
const std::string kNameP =
    "50 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
const std::string kNameQ =
    "51 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

const std::string kSevenIsNew = "Simulator ID is now 7 -> reconnecting under the new id\n";

/// The requests that register inputs B and A and outputs Q and P again, in name order, under the given simulator word.
Lines reregistration(const std::string& simulatorWord) {
    return {"04 02 7F FF 00 00 00 6C 00 7F 00 01 " + simulatorWord +
                " 00 00 00 02 00 00 2E E0 00 00 2E E0 00 00 00 00 " + kNameA + " 00 01 D4 C0 00 01 D4 C0 00 00 00 01 " +
                kNameB,
            "04 02 7F FF 00 00 00 64 00 7F 00 02 " + simulatorWord + " 00 00 00 02 00 00 04 B0 00 00 00 01 " + kNameP +
                " 00 00 04 B0 00 00 00 00 " + kNameQ};
}

void registerFour(ReadyEngine& engine) {
    engine.registerInput("B", CSClient::TYPE_INT, 3);
    engine.registerInput("A", CSClient::TYPE_FLOAT, 1);
    engine.registerOutput("Q", CSClient::TYPE_FLOAT);
    engine.registerOutput("P", CSClient::TYPE_INT);
    engine.forgetRequests();
}

TEST(NewSimulatorId, IsStoredAndReported) {
    CapturedStreams streams;
    ReadyEngine engine(5, kTalking);
    engine.receive(versionResponse(0x00070000, "HOST", 9));
    EXPECT_EQ(7U, engine.getSimulatorId());
    EXPECT_EQ(kSevenIsNew + "Found server version: HOST\nFound simulator id: 7\nFound protocol version: 9\n",
              streams.out());
    EXPECT_EQ("", streams.err());
    EXPECT_EQ(4, streams.outInsertions());
}

TEST(NewSimulatorId, IsReportedEvenWhenSilent) {
    CapturedStreams streams;
    ReadyEngine engine(5, kSilent);
    registerFour(engine);
    engine.receive(versionResponse(0x00070000, "HOST", 9));
    EXPECT_EQ(kSevenIsNew, streams.out());
    EXPECT_EQ("", streams.err());
    EXPECT_EQ(1, streams.outInsertions());
}

TEST(NewSimulatorId, RegistersEverythingAgainUnderTheNewId) {
    for (const unsigned int options : {kSilent, kTalking}) {
        CapturedStreams streams;
        ReadyEngine engine(5, options);
        registerFour(engine);
        engine.receive(versionResponse(0x00070000, "HOST"));
        EXPECT_EQ(reregistration("00 07 00 00"), engine.requests());
    }
}

TEST(NewSimulatorId, LinesAndRequestsComeInOrder) {
    CapturedStreams streams;
    ReadyEngine engine(5, kTalking);
    registerFour(engine);
    Lines printedAtWrite;
    engine.fakeTransport().onWrite = [&] { printedAtWrite.push_back(streams.out()); };
    engine.receive(versionResponse(0x00070000, "HOST", 9));
    const std::string inputs = kSevenIsNew + "Registering input parameters with server...\n";
    const std::string outputs = inputs + "Registering output parameters with server...\n";
    EXPECT_EQ((Lines{inputs, outputs}), printedAtWrite);
    EXPECT_EQ(outputs + "Found server version: HOST\nFound simulator id: 7\nFound protocol version: 9\n",
              streams.out());
}

TEST(NewSimulatorId, TextAndIdAreStoredBeforeTheRequestsAndTheProtocolVersionAfterThem) {
    CapturedStreams streams;
    ReadyEngine engine(5, kSilent);
    registerFour(engine);
    int writes = 0;
    engine.fakeTransport().onWrite = [&] {
        ++writes;
        EXPECT_EQ("HOST", engine.getServerVersion());
        EXPECT_EQ(7U, engine.getSimulatorId());
        EXPECT_EQ(0U, engine.getProtocolVersion());
    };
    engine.receive(versionResponse(0x00070000, "HOST", 9));
    EXPECT_EQ(2, writes);
    EXPECT_EQ(9U, engine.getProtocolVersion());
}

TEST(NewSimulatorId, WithoutParametersNothingIsSent) {
    CapturedStreams streams;
    ReadyEngine engine(5, kTalking);
    engine.receive(versionResponse(0x00070000, "HOST", 9));
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ(std::string::npos, streams.out().find("Registering"));
}

TEST(NewSimulatorId, WithOutputsOnlyTheInputsAreNotMentioned) {
    CapturedStreams streams;
    ReadyEngine engine(5, kTalking);
    engine.registerOutput("P");
    engine.forgetRequests();
    engine.receive(versionResponse(0x00070000, "HOST", 9));
    EXPECT_EQ(1U, engine.requests().size());
    EXPECT_EQ(kSevenIsNew +
                  "Registering output parameters with server...\n"
                  "Found server version: HOST\nFound simulator id: 7\nFound protocol version: 9\n",
              streams.out());
}

TEST(NewSimulatorId, KeepsTheConnectionUp) {
    CapturedStreams streams;
    Lines log;
    ActingCallbacks callbacks(log);
    ReadyEngine engine(5, kTalking);
    engine.addCallbackInterface(&callbacks);
    engine.receive(versionResponse(0x00070000, "HOST"));
    EXPECT_EQ(CSClient::STATE_READY, engine.getState());
    EXPECT_EQ(Lines{}, log);
    EXPECT_EQ(0, engine.fakeTransport().closeCount());
}

TEST(NewSimulatorId, InputsWaitAgainAndOutputsStayConfirmed) {
    CapturedStreams streams;
    ReadyEngine engine(5, kSilent);
    registerFour(engine);
    engine.receive(inputConfirmation(1, {confirmedInput(21, 0, "00 00 00 00", "A")}));
    engine.receive(outputConfirmation(1, {confirmedOutput(31, "P")}));
    engine.receive(versionResponse(0x00070000, "HOST"));
    EXPECT_FALSE(engine.hasInputParameter("A", true));
    EXPECT_TRUE(engine.inputIds().empty());
    EXPECT_TRUE(engine.hasOutputParameter("P", true));
    EXPECT_EQ((std::map<std::uint32_t, std::string>{{31, "P"}}), engine.outputIds());
}

TEST(NewSimulatorId, AnnouncedTwiceIsNewOnlyOnce) {
    CapturedStreams streams;
    ReadyEngine engine(5, kSilent);
    registerFour(engine);
    engine.receive(versionResponse(0x00070000, "HOST"));
    engine.forgetRequests();
    engine.receive(versionResponse(0x00070000, "HOST"));
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ(kSevenIsNew, streams.out());
}

TEST(NewSimulatorId, LargestValidIdIsStored) {
    CapturedStreams streams;
    ReadyEngine engine(3, kSilent);
    registerFour(engine);
    engine.receive(versionResponse(0x7FFF0000, "HOST"));
    EXPECT_EQ(32767U, engine.getSimulatorId());
    EXPECT_EQ(reregistration("7F FF 00 00"), engine.requests());
    EXPECT_EQ("Simulator ID is now 32767 -> reconnecting under the new id\n", streams.out());
}

TEST(NewSimulatorId, ZeroIsAnIdLikeAnyOther) {
    CapturedStreams streams;
    ReadyEngine engine(3, kSilent);
    registerFour(engine);
    engine.receive(versionResponse(0x0000FFFF, "HOST"));
    EXPECT_EQ(0U, engine.getSimulatorId());
    EXPECT_EQ(reregistration("00 00 00 00"), engine.requests());
    EXPECT_EQ("Simulator ID is now 0 -> reconnecting under the new id\n", streams.out());
}

TEST(NewSimulatorId, AboveTheLimitIsReportedAndReregisteredButNotStored) {
    for (const unsigned int announced : {32768U, 40000U, 65535U}) {
        CapturedStreams streams;
        ReadyEngine engine(3, kTalking);
        registerFour(engine);
        engine.receive(versionResponse(announced << 16U, "HOST", 9));
        EXPECT_EQ(3U, engine.getSimulatorId());
        EXPECT_EQ(reregistration("00 03 00 00"), engine.requests());
        const std::string id = std::to_string(announced);
        EXPECT_EQ("Simulator ID is now " + id +
                      " -> reconnecting under the new id\n"
                      "Registering input parameters with server...\n"
                      "Registering output parameters with server...\n"
                      "Found server version: HOST\nFound simulator id: " +
                      id + "\nFound protocol version: 9\n",
                  streams.out());
        EXPECT_EQ("HOST", engine.getServerVersion());
    }
}

TEST(NewSimulatorId, AboveTheLimitIsNewEveryTime) {
    CapturedStreams streams;
    ReadyEngine engine(3, kSilent);
    registerFour(engine);
    engine.receive(versionResponse(40000U << 16U, "HOST"));
    engine.receive(versionResponse(40000U << 16U, "HOST"));
    EXPECT_EQ(4U, engine.requests().size());
    EXPECT_EQ(
        "Simulator ID is now 40000 -> reconnecting under the new id\n"
        "Simulator ID is now 40000 -> reconnecting under the new id\n",
        streams.out());
}

TEST(NewSimulatorId, EqualToAnUncheckedConstructorIdIsNotNew) {
    CapturedStreams streams;
    ReadyEngine engine(40000, kSilent);
    registerFour(engine);
    engine.receive(versionResponse(40000U << 16U, "HOST"));
    EXPECT_EQ(40000U, engine.getSimulatorId());
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ("", streams.out());
}

TEST(NewSimulatorId, IsComparedWithAllBitsOfTheStoredId) {
    CapturedStreams streams;
    ReadyEngine engine(0x12345678, kSilent);
    registerFour(engine);
    engine.receive(versionResponse(0x56780000, "HOST"));
    EXPECT_EQ(0x5678U, engine.getSimulatorId());
    EXPECT_EQ(reregistration("56 78 00 00"), engine.requests());
    EXPECT_EQ("Simulator ID is now 22136 -> reconnecting under the new id\n", streams.out());
}

TEST(NewSimulatorId, FailedWriteGivesOneLineAndOneCloseAndTheRestGoesOn) {
    CapturedStreams streams;
    Lines log;
    ActingCallbacks callbacks(log);
    ReadyEngine engine(5, kTalking);
    registerFour(engine);
    engine.addCallbackInterface(&callbacks);
    engine.fakeTransport().failWrites(-1, 104);
    engine.receive(versionResponse(0x00070000, "HOST", 9));
    EXPECT_EQ("Error writing to server (104) \n", streams.err());
    EXPECT_EQ(Lines{"state 3"}, log);
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ(kSevenIsNew +
                  "Registering input parameters with server...\n"
                  "Registering output parameters with server...\n"
                  "Found server version: HOST\nFound simulator id: 7\nFound protocol version: 9\n",
              streams.out());
}

TEST(NewSimulatorId, FailedWriteReconnectsOnceAndRegistersUnderTheNewIdAfterIt) {
    CapturedStreams streams;
    Lines log;
    ActingCallbacks callbacks(log);
    ReadyEngine engine(5, CSClient::OPTION_AUTO_RECONNECT | kSilent);
    registerFour(engine);
    engine.addCallbackInterface(&callbacks);
    engine.fakeTransport().failWrites(-1, 104);
    engine.receive(versionResponse(0x00070000, "HOST", 9));
    EXPECT_EQ((Lines{"state 5", "state 1"}), log);
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ(kSevenIsNew, streams.out());
    EXPECT_EQ(9U, engine.getProtocolVersion());
    engine.connect();
    const Lines requests = engine.requests();
    ASSERT_EQ(3U, requests.size());
    EXPECT_EQ(reregistration("00 07 00 00"), Lines(requests.begin() + 1, requests.end()));
}

TEST(NewSimulatorId, WithoutAConnectionTheParametersWaitForTheNextOne) {
    CapturedStreams streams;
    ReadyEngine engine(5, kSilent);
    registerFour(engine);
    engine.pretendState(CSClient::STATE_RECONNECTING);
    engine.receive(versionResponse(0x00070000, "HOST", 9));
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ(2U, engine.getNumberOfInputParameters(false));
    EXPECT_EQ(2U, engine.getNumberOfOutputParameters(false));
    engine.connect();
    const Lines requests = engine.requests();
    ASSERT_EQ(3U, requests.size());
    EXPECT_EQ(reregistration("00 07 00 00"), Lines(requests.begin() + 1, requests.end()));
}

/// Counts what reaches the virtual registration.
class DerivedEngine : public ReadyEngine {
  public:
    using ReadyEngine::ReadyEngine;
    int registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) override {
        registered += count;
        return ReadyEngine::registerInputParameters(definitions, count);
    }
    unsigned int registered = 0;
};

TEST(NewSimulatorId, RegistersInputsThroughTheVirtualOperation) {
    CapturedStreams streams;
    DerivedEngine engine(5, kSilent);
    registerFour(engine);
    engine.registered = 0;
    engine.receive(versionResponse(0x00070000, "HOST"));
    EXPECT_EQ(2U, engine.registered);
}

}  // namespace
}  // namespace com_tesk::test
