#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <string>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

/// Sends one message on a standing connection and gives the frame that went out.
std::string frameOf(RawMessage::Type type, const std::string& bodyHex) {
    ConnectionEngine engine(kSilent);
    engine.connect();
    const std::size_t before = engine.probe().written().size();
    EXPECT_EQ(engine.sendMessage(messageOf(type, bodyHex)), 0U);
    const std::vector<std::string> written = engine.probe().written();
    EXPECT_EQ(written.size(), before + 1);
    return written.back();
}

TEST(FrameSending, DataBodyOfTwelveBytesGoesOutWithItsLengthInBytesFourToSeven) {
    EXPECT_EQ(frameOf(RawMessage::DATA, "04 02 7F FF 00 00 00 00 00 7F 00 01"),
              "00 00 00 2C 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "04 02 7F FF 00 00 00 0C 00 7F 00 01");
}

TEST(FrameSending, LengthThatTheBuilderLeftInADataBodyIsOverwritten) {
    EXPECT_EQ(frameOf(RawMessage::DATA, "A0 A1 A2 A3 DE AD BE EF A8 A9"),
              "00 00 00 2A 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "A0 A1 A2 A3 00 00 00 0A A8 A9");
}

TEST(FrameSending, DataBodyOfNineBytesGetsItsLength) {
    EXPECT_EQ(frameOf(RawMessage::DATA, "A0 A1 A2 A3 A4 A5 A6 A7 A8"),
              "00 00 00 29 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "A0 A1 A2 A3 00 00 00 09 A8");
}

TEST(FrameSending, DataBodyOfEightBytesIsLeftAsBuilt) {
    EXPECT_EQ(frameOf(RawMessage::DATA, "A0 A1 A2 A3 A4 A5 A6 A7"),
              "00 00 00 28 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "A0 A1 A2 A3 A4 A5 A6 A7");
}

TEST(FrameSending, DataBodyOfOneByteIsLeftAsBuilt) {
    EXPECT_EQ(frameOf(RawMessage::DATA, "5A"),
              "00 00 00 21 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF 5A");
}

TEST(FrameSending, EmptyDataBodyGoesOutAsABareHeader) {
    EXPECT_EQ(frameOf(RawMessage::DATA, ""),
              "00 00 00 20 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
}

TEST(FrameSending, ControlMessageCarriesItsKindItsSubKindAndItsEndMark) {
    EXPECT_EQ(frameOf(RawMessage::CONTROL, "01 02 03 04"),
              "00 00 00 24 00 00 00 20 00 00 00 03 00 00 00 02 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FE "
              "01 02 03 04");
}

TEST(FrameSending, ControlBodyIsNeverGivenItsLength) {
    EXPECT_EQ(frameOf(RawMessage::CONTROL, "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB"),
              "00 00 00 2C 00 00 00 20 00 00 00 03 00 00 00 02 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FE "
              "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB");
}

TEST(FrameSending, EmptyControlBodyGoesOutAsABareHeader) {
    EXPECT_EQ(frameOf(RawMessage::CONTROL, ""),
              "00 00 00 20 00 00 00 20 00 00 00 03 00 00 00 02 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FE");
}

TEST(FrameSending, MessageOfAnUnknownTypeGoesOutBehindTheBareTemplate) {
    EXPECT_EQ(frameOf(static_cast<RawMessage::Type>(9), "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9"),
              "00 00 00 2A 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF "
              "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9");
}

TEST(FrameSending, FrameLengthIsBigEndian) {
    ConnectionEngine engine(kSilent);
    engine.connect();
    RawMessage message(RawMessage::CONTROL);
    message.resize(0x00010203 - 32);
    EXPECT_EQ(engine.sendMessage(message), 0U);
    EXPECT_EQ(engine.probe().written().back().substr(0, 23), "00 01 02 03 00 00 00 20");
}

TEST(FrameSending, CallersMessageIsNotChanged) {
    ConnectionEngine engine(kSilent);
    engine.connect();
    const RawMessage message = messageOf(RawMessage::DATA, "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9");
    EXPECT_EQ(engine.sendMessage(message), 0U);
    EXPECT_EQ(hexText(message), "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9");
    EXPECT_EQ(message.getType(), RawMessage::DATA);
}

TEST(FrameSending, FrameObjectHasTheTypeOfItsMessage) {
    ConnectionEngine engine(kSilent);
    engine.connect();
    for (const RawMessage::Type type : {RawMessage::DATA, RawMessage::CONTROL, RawMessage::CONTROL, RawMessage::DATA}) {
        EXPECT_EQ(engine.sendMessage(messageOf(type, "01 02")), 0U);
        EXPECT_EQ(engine.probe().writtenTypes().back(), type);
    }
}

TEST(FrameSending, RequestAfterAControlMessageIsDataAgain) {
    ConnectionEngine engine(kSilent);
    engine.connect();
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::CONTROL, "01 02")), 0U);
    const CSClient::OutputDef output{"A", CSClient::TYPE_FLOAT};
    EXPECT_EQ(engine.registerOutputParameters(&output, 1), 0);
    EXPECT_EQ(engine.probe().writtenTypes(),
              (std::vector<RawMessage::Type>{RawMessage::DATA, RawMessage::CONTROL, RawMessage::DATA}));
}

TEST(FrameSending, InvalidMessageIsRefusedWithoutAWrite) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    engine.connect();
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::INVALID, "01 02 03 04")), 3U);
    EXPECT_EQ(engine.probe().written(), std::vector<std::string>{versionRequestFrame()});
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
    EXPECT_EQ(captured.err(), "");
}

TEST(FrameSending, ConnectionIsAskedForBeforeTheTypeOfTheMessage) {
    ConnectionEngine engine;
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::INVALID, "01")), 1U);
}

class FrameSendingWithoutConnection : public testing::TestWithParam<CSClient::State> {};

TEST_P(FrameSendingWithoutConnection, WritesNothingAndReportsNotConnected) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    engine.pretendState(GetParam());
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::DATA, "01 02")), 1U);
    EXPECT_TRUE(engine.probe().written().empty());
    EXPECT_EQ(captured.err() + captured.out(), "");
    EXPECT_EQ(engine.getState(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(State, FrameSendingWithoutConnection,
                         testing::Values(CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                         CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING),
                         testing::PrintToStringParamName());

TEST(FrameSending, StateConnectedIsEnoughToSend) {
    ConnectionEngine engine;
    engine.pretendState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::CONTROL, "01")), 0U);
    EXPECT_EQ(engine.probe().written().size(), 1U);
}

TEST(FrameSending, TakesNoLockOfAStateChangeUnderWay) {
    ConnectionEngine engine(kSilent);
    Latch inVersionRequest;
    Latch goOn;
    engine.onVersionRequest = [&] {
        inVersionRequest.open();
        goOn.wait();
    };
    const auto connecting = std::async(std::launch::async, [&engine] { engine.connect(); });
    ASSERT_TRUE(inVersionRequest.wait());
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::CONTROL, "01")), 0U);
    EXPECT_EQ(engine.probe().written().size(), 1U);
    goOn.open();
}

TEST(FrameSending, TwoThreadsMayWriteAtTheSameMoment) {
    ConnectionEngine engine(kSilent);
    engine.connect();
    std::atomic<int> inside{0};
    engine.probe().onWrite = [&inside] {
        ++inside;
        EXPECT_TRUE(waitUntil([&inside] { return inside == 2; }));
    };
    const auto send = [&engine] { return engine.sendMessage(messageOf(RawMessage::CONTROL, "01 02")); };
    auto first = std::async(std::launch::async, send);
    auto second = std::async(std::launch::async, send);
    EXPECT_EQ(first.get(), 0U);
    EXPECT_EQ(second.get(), 0U);
}

TEST(FailedSending, ErrorIsReportedAndEndsTheConnection) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    RecordingCallbacks callbacks;
    engine.connect();
    engine.addCallbackInterface(&callbacks);
    engine.probe().failWrites(-1, EPIPE);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::DATA, "01 02")), 2U);
    EXPECT_EQ(captured.err(), "Error writing to server (32) \n");
    EXPECT_EQ(captured.errInsertions(), 1);
    EXPECT_EQ(callbacks.states(), "4->3");
    EXPECT_EQ(engine.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(engine.getServerPort(), 0U);
}

TEST(FailedSending, ErrorNumberIsThatOfTheWrite) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    engine.connect();
    engine.probe().failWrites(-1, ECONNRESET);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::DATA, "01 02")), 2U);
    EXPECT_EQ(captured.err(), "Error writing to server (104) \n");
}

TEST(FailedSending, ShortWriteIsAFailureAndIsNotCompleted) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    engine.connect();
    int writes = 0;
    engine.probe().onWrite = [&writes] { ++writes; };
    engine.probe().failWrites(33, 11);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::DATA, "01 02")), 2U);
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(captured.err(), "Error writing to server (11) \n");
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
}

TEST(FailedSending, WriteOfNothingIsAFailure) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    engine.connect();
    engine.probe().failWrites(0, 0);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::CONTROL, "")), 2U);
    EXPECT_EQ(captured.err(), "Error writing to server (0) \n");
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
}

TEST(FailedSending, SilentEngineClosesWithoutALine) {
    const CapturedStreams captured;
    ConnectionEngine engine(kSilent);
    engine.connect();
    engine.probe().failWrites(-1, EPIPE);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::DATA, "01 02")), 2U);
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(captured.err() + captured.out(), "");
}

TEST(FailedSending, WithReconnectTheSenderSleepsTheSecond) {
    const CapturedStreams captured;
    ConnectionEngine engine(kReconnect);
    RecordingCallbacks callbacks;
    engine.connect();
    engine.addCallbackInterface(&callbacks);
    engine.probe().failWrites(-1, EPIPE);
    const Stopwatch stopwatch;
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::DATA, "01 02")), 2U);
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_EQ(captured.out(), "Attempting to reconnect...\n");
    EXPECT_EQ(callbacks.states(), "4->5 5->1");
    EXPECT_EQ(engine.getServerIPAddress(), "127.0.0.1");
    EXPECT_EQ(engine.getServerPort(), 55580U);
}

TEST(FailedSending, WithReconnectASilentEnginePrintsNothing) {
    const CapturedStreams captured;
    ConnectionEngine engine(kReconnect | kSilent);
    engine.connect();
    engine.probe().failWrites(-1, EPIPE);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::DATA, "01 02")), 2U);
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(captured.err() + captured.out(), "");
}

TEST(FailedSending, NextSendReportsNotConnected) {
    ConnectionEngine engine(kSilent);
    engine.connect();
    engine.probe().failWrites(-1, EPIPE);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::DATA, "01 02")), 2U);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::DATA, "01 02")), 1U);
}

TEST(FailedSending, WriteThatFailsAfterTheConnectionWasEndedChangesNothing) {
    const CapturedStreams captured;
    ConnectionEngine engine;
    RecordingCallbacks callbacks;
    engine.connect();
    engine.addCallbackInterface(&callbacks);
    engine.probe().onWrite = [&engine] { engine.forceCloseConnection(); };
    engine.probe().failWrites(-1, EPIPE);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::DATA, "01 02")), 2U);
    EXPECT_EQ(callbacks.states(), "4->3");
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
}

}  // namespace
}  // namespace com_tesk::test
