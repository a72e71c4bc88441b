#include <gtest/gtest.h>

#include "tests/simulator/ReadyEngine.h"

namespace com_tesk::test {
namespace {

/// Bytes 12 to 15 of each of the six requests.
Lines simulatorWords(ReadyEngine& engine) {
    CSClientProtocol::InputParameterEntry input{"I", CSClient::TYPE_FLOAT, 1, 7};
    CSClientProtocol::OutputParameterEntry output{"O", CSClient::TYPE_FLOAT, 8, false, {0.0F}};
    engine.forgetRequests();
    engine.requestSimulatorVersion();
    engine.sendInputSubscriptionRequest({&input});
    engine.sendInputUnsubscriptionRequest({&input});
    engine.sendOutputSubscriptionRequest({&output});
    engine.sendOutputUnsubscriptionRequest({&output});
    engine.sendParameterPublishRequest({&output}, CSClientProtocol::PUBLISH_DEFAULT);
    Lines words;
    for (const std::string& request : engine.requests()) {
        words.push_back(request.substr(12 * 3, 4 * 3 - 1));
    }
    return words;
}

Lines simulatorWordsOf(unsigned int id) {
    ReadyEngine engine(id);
    EXPECT_EQ(id, engine.getSimulatorId());
    return simulatorWords(engine);
}

TEST(SimulatorId, ZeroGivesAZeroWordInEveryRequest) {
    EXPECT_EQ(Lines(6, "00 00 00 00"), simulatorWordsOf(0));
}

TEST(SimulatorId, StandsInTheUpperHalfOfTheWord) {
    EXPECT_EQ(Lines(6, "00 05 00 00"), simulatorWordsOf(5));
}

TEST(SimulatorId, LargestValidIdFillsFifteenBits) {
    EXPECT_EQ(Lines(6, "7F FF 00 00"), simulatorWordsOf(32767));
}

TEST(SimulatorId, ConstructorTakesAnIdThatSettingRefuses) {
    EXPECT_EQ(Lines(6, "80 00 00 00"), simulatorWordsOf(32768));
    EXPECT_EQ(Lines(6, "FF FF 00 00"), simulatorWordsOf(65535));
}

TEST(SimulatorId, BitsAboveTheWordAreLost) {
    EXPECT_EQ(Lines(6, "56 78 00 00"), simulatorWordsOf(0x12345678));
    EXPECT_EQ(Lines(6, "00 00 00 00"), simulatorWordsOf(0x00010000));
    EXPECT_EQ(Lines(6, "FF FF 00 00"), simulatorWordsOf(0xFFFFFFFF));
}

TEST(SimulatorId, SetIdIsUsedByTheNextRequests) {
    ReadyEngine engine(5);
    EXPECT_EQ(0, engine.setSimulatorId(0x1234));
    EXPECT_EQ(0x1234U, engine.getSimulatorId());
    EXPECT_EQ(Lines(6, "12 34 00 00"), simulatorWords(engine));
}

TEST(SimulatorId, SettingTakesZeroAndTheLargestValidId) {
    ReadyEngine engine(5);
    EXPECT_EQ(0, engine.setSimulatorId(0));
    EXPECT_EQ(0U, engine.getSimulatorId());
    EXPECT_EQ(0, engine.setSimulatorId(32766));
    EXPECT_EQ(0, engine.setSimulatorId(32767));
    EXPECT_EQ(32767U, engine.getSimulatorId());
}

TEST(SimulatorId, SettingRefusesWhatFifteenBitsDoNotHoldAndKeepsTheOldId) {
    ReadyEngine engine(5);
    for (const unsigned int id : {32768U, 32769U, 65535U, 65536U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(3, engine.setSimulatorId(id)) << id;
        EXPECT_EQ(5U, engine.getSimulatorId());
    }
    EXPECT_EQ(Lines(6, "00 05 00 00"), simulatorWords(engine));
}

TEST(SimulatorId, SettingSendsNothingAndKeepsConfirmations) {
    ReadyEngine engine(5);
    engine.registerInput("I");
    engine.registerOutput("O");
    engine.forgetRequests();
    EXPECT_EQ(0, engine.setSimulatorId(6));
    EXPECT_EQ(Lines{}, engine.requests());
    EXPECT_EQ(1U, engine.getNumberOfInputParameters(false));
    EXPECT_EQ(1U, engine.getNumberOfOutputParameters(false));
}

TEST(SimulatorId, SurvivesAReconnection) {
    ReadyEngine engine(5);
    engine.setSimulatorId(6);
    engine.changeState(CSClient::STATE_RECONNECTING);
    engine.connect();
    EXPECT_EQ(6U, engine.getSimulatorId());
    EXPECT_EQ(Lines{"04 02 7F FF 00 00 00 14 00 7F 00 06 00 06 00 00 00 00 00 00"}, engine.requests());
}

TEST(SimulatorId, SurvivesTheEndOfTheConnection) {
    ReadyEngine engine(5);
    engine.setSimulatorId(6);
    engine.changeState(CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(6U, engine.getSimulatorId());
}

}  // namespace
}  // namespace com_tesk::test
