#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using Strings = std::vector<std::string>;
using Counts = std::vector<unsigned int>;

std::string headerOf(const std::string& frameLength, const std::string& kind = "00 00 00 00") {
    return frameLength + " 00 00 00 20 " + kind + " 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF";
}

class FrameReceiving : public testing::Test {
  protected:
    FrameReceiving() { prepare(engine); }

    void prepare(ConnectionEngine& prepared) {
        prepared.connect();
        prepared.addCallbackInterface(&callbacks);
    }

    CapturedStreams captured;
    RecordingCallbacks callbacks;
    ConnectionEngine engine;
};

TEST_F(FrameReceiving, BodyIsHandedOnWithoutItsHeader) {
    engine.probe().queueRead(32, headerOf("00 00 00 24"));
    engine.probe().queueRead(4, "01 02 03 04");
    engine.receiveMessage();
    EXPECT_EQ(engine.received(), Strings{"1: 01 02 03 04"});
    EXPECT_EQ(engine.probe().readCounts(), (Counts{32, 4}));
    EXPECT_EQ(captured.err(), "");
}

TEST_F(FrameReceiving, BodyOfOneByteIsHandedOn) {
    engine.probe().queueRead(32, headerOf("00 00 00 21"));
    engine.probe().queueRead(1, "5A");
    engine.receiveMessage();
    EXPECT_EQ(engine.received(), Strings{"1: 5A"});
}

TEST_F(FrameReceiving, ControlMessageIsHandedOn) {
    engine.probe().queueRead(32, headerOf("00 00 00 22", "00 00 00 03"));
    engine.probe().queueRead(2, "0A 0B");
    engine.receiveMessage();
    EXPECT_EQ(engine.received(), Strings{"2: 0A 0B"});
}

TEST_F(FrameReceiving, FrameOfAnUnknownKindIsHandedOnAsInvalid) {
    engine.probe().queueRead(32, headerOf("00 00 00 22", "00 00 00 07"));
    engine.probe().queueRead(2, "0A 0B");
    engine.receiveMessage();
    EXPECT_EQ(engine.received(), Strings{"0: 0A 0B"});
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
}

TEST_F(FrameReceiving, AtMostOneFrameIsReadAtATime) {
    engine.probe().queueFrame("01");
    engine.probe().queueFrame("02");
    engine.receiveMessage();
    EXPECT_EQ(engine.received(), Strings{"1: 01"});
    engine.receiveMessage();
    EXPECT_EQ(engine.received(), (Strings{"1: 01", "1: 02"}));
}

TEST_F(FrameReceiving, QuietHostGivesNoMessageAndNoLine) {
    engine.receiveMessage();
    EXPECT_TRUE(engine.received().empty());
    EXPECT_EQ(engine.probe().readCounts(), Counts{32});
    EXPECT_EQ(captured.err() + captured.out(), "");
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
}

TEST_F(FrameReceiving, RefusedHeaderIsNotFollowedByABodyRead) {
    engine.probe().queueRead(32, headerOf("00 00 00 20"));
    engine.receiveMessage();
    EXPECT_EQ(engine.probe().readCounts(), Counts{32});
    EXPECT_TRUE(engine.received().empty());
}

TEST_F(FrameReceiving, MissingBytesAreAskedForIntoTheSameMessage) {
    engine.probe().queueRead(32, headerOf("00 00 00 2A"));
    engine.probe().queueRead(4, "01 02 03 04");
    engine.probe().queueRead(5, "05 06 07 08 09");
    engine.probe().queueRead(1, "0A");
    engine.receiveMessage();
    EXPECT_EQ(engine.probe().readCounts(), (Counts{32, 10, 6, 1}));
    EXPECT_EQ(engine.received(), Strings{"1: 01 02 03 04 05 06 07 08 09 0A"});
}

TEST_F(FrameReceiving, HostThatPausesInTheMiddleOfABodyIsWaitedForWithoutLimit) {
    engine.probe().queueRead(32, headerOf("00 00 00 24"));
    for (int i = 0; i < 500; ++i) {
        engine.probe().queueRead(-2, "", EAGAIN);
    }
    engine.probe().queueRead(4, "01 02 03 04");
    engine.receiveMessage();
    EXPECT_EQ(engine.received(), Strings{"1: 01 02 03 04"});
    EXPECT_EQ(engine.probe().readCounts().size(), 502U);
    EXPECT_EQ(engine.probe().readCounts().back(), 4U);
    EXPECT_EQ(captured.err(), "");
}

TEST_F(FrameReceiving, InABodyTheErrorNumberAloneTellsATimeOut) {
    engine.probe().queueRead(32, headerOf("00 00 00 22"));
    engine.probe().queueRead(-1, "", EAGAIN);
    engine.probe().queueRead(2, "01 02");
    engine.receiveMessage();
    EXPECT_EQ(engine.received(), Strings{"1: 01 02"});
    EXPECT_EQ(captured.err(), "");
}

TEST_F(FrameReceiving, EndOfTheStreamInABodyDropsTheMessage) {
    engine.probe().queueRead(32, headerOf("00 00 00 2A"));
    engine.probe().queueRead(4, "01 02 03 04");
    engine.probe().queueRead(0);
    engine.receiveMessage();
    EXPECT_EQ(captured.err(), "EXIT: Connection closed by server.\n");
    EXPECT_EQ(captured.errInsertions(), 1);
    EXPECT_EQ(callbacks.states(), "4->3");
    EXPECT_TRUE(engine.received().empty());
}

TEST_F(FrameReceiving, ReadErrorInABodyDropsTheMessage) {
    engine.probe().queueRead(32, headerOf("00 00 00 2A"));
    engine.probe().queueRead(4, "01 02 03 04");
    engine.probe().queueRead(-1, "", ECONNRESET);
    engine.receiveMessage();
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
    EXPECT_EQ(captured.errInsertions(), 1);
    EXPECT_EQ(callbacks.states(), "4->3");
    EXPECT_TRUE(engine.received().empty());
}

TEST_F(FrameReceiving, SilentEngineDropsTheMessageWithoutALine) {
    for (const int result : {0, -1}) {
        SCOPED_TRACE(result);
        ConnectionEngine silent(kSilent);
        prepare(silent);
        silent.probe().queueRead(32, headerOf("00 00 00 2A"));
        silent.probe().queueRead(result, "", ECONNRESET);
        silent.receiveMessage();
        EXPECT_EQ(silent.getState(), CSClient::STATE_DISCONNECTING);
        EXPECT_TRUE(silent.received().empty());
        EXPECT_EQ(captured.err() + captured.out(), "");
    }
}

TEST_F(FrameReceiving, WithReconnectTheEndOfTheStreamInABodyBeginsAReconnection) {
    ConnectionEngine reconnecting(kReconnect);
    prepare(reconnecting);
    reconnecting.probe().queueRead(32, headerOf("00 00 00 2A"));
    reconnecting.probe().queueRead(0);
    const Stopwatch stopwatch;
    reconnecting.receiveMessage();
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(captured.err(), "EXIT: Connection closed by server.\n");
    EXPECT_EQ(captured.out(), "Attempting to reconnect...\n");
    EXPECT_EQ(callbacks.states(), "4->5 5->1");
}

TEST_F(FrameReceiving, WithReconnectAReadErrorInABodyBeginsAReconnection) {
    ConnectionEngine reconnecting(kReconnect);
    prepare(reconnecting);
    reconnecting.probe().queueRead(32, headerOf("00 00 00 2A"));
    reconnecting.probe().queueRead(-1, "", EIO);
    const Stopwatch stopwatch;
    reconnecting.receiveMessage();
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
    EXPECT_EQ(callbacks.states(), "4->5 5->1");
}

TEST_F(FrameReceiving, HandlerMayEndTheConnection) {
    engine.onMessage = [this] { engine.forceCloseConnection(); };
    engine.probe().queueFrame("01");
    engine.receiveMessage();
    EXPECT_EQ(callbacks.states(), "4->3");
    EXPECT_EQ(captured.err(), "");
}

TEST_F(FrameReceiving, HandlerRunsWithoutAnyLock) {
    const CSClient::OutputDef output{"A", CSClient::TYPE_INT};
    engine.onMessage = [this, &output] {
        EXPECT_EQ(engine.registerOutputParameters(&output, 1), 0);
        EXPECT_EQ(engine.removeCallbackInterface(&callbacks), 0);
        EXPECT_EQ(engine.openConnection(1, 1, nullptr), 2);
    };
    engine.probe().queueFrame("01");
    engine.receiveMessage();
    EXPECT_TRUE(engine.hasOutputParameter("A", false));
}

}  // namespace
}  // namespace com_tesk::test
