#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

constexpr const char* kFiller = " FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF";
constexpr const char* kZeroHeader =
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

/// A connected engine, what it prints, and one header read. The results start as values that no header gives.
class HeaderRead : public testing::Test {
  protected:
    explicit HeaderRead(unsigned int optionFlags = 0) : engine(optionFlags) {
        engine.connect();
        engine.addCallbackInterface(&callbacks);
    }

    bool read(int result, const std::string& headerHex, int error = 0) {
        engine.probe().queueRead(result, headerHex, error);
        return engine.readMessageHeader(type, bodyLength);
    }

    void expectClosed(const std::string& line) {
        EXPECT_EQ(captured.err(), line);
        EXPECT_EQ(callbacks.states(), "4->3");
        EXPECT_EQ(type, kUntouchedType);
    }

    static constexpr RawMessage::Type kUntouchedType = static_cast<RawMessage::Type>(77);
    static constexpr unsigned int kUntouchedLength = 123456;

    CapturedStreams captured;
    RecordingCallbacks callbacks;
    ConnectionEngine engine;
    RawMessage::Type type = kUntouchedType;
    unsigned int bodyLength = kUntouchedLength;
};

using FrameHeader = HeaderRead;

class SilentFrameHeader : public HeaderRead {
  protected:
    SilentFrameHeader() : HeaderRead(kSilent) {}

    void expectClosedInSilence() {
        EXPECT_EQ(captured.err() + captured.out(), "");
        EXPECT_EQ(callbacks.states(), "4->3");
    }
};

class ReconnectingFrameHeader : public HeaderRead {
  protected:
    ReconnectingFrameHeader() : HeaderRead(kReconnect) {}
};

TEST_F(FrameHeader, DataHeaderGivesTypeAndBodyLength) {
    EXPECT_TRUE(read(32, std::string("00 00 00 2C 00 00 00 20 00 00 00 00 00 00 00 00") + kFiller));
    EXPECT_EQ(type, RawMessage::DATA);
    EXPECT_EQ(bodyLength, 12U);
    EXPECT_EQ(engine.probe().readCounts(), std::vector<unsigned int>{32});
    EXPECT_EQ(captured.err(), "");
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
}

TEST_F(FrameHeader, KindThreeIsAControlMessage) {
    EXPECT_TRUE(read(32, std::string("00 00 00 24 00 00 00 20 00 00 00 03 00 00 00 02") + kFiller));
    EXPECT_EQ(type, RawMessage::CONTROL);
    EXPECT_EQ(bodyLength, 4U);
}

TEST_F(FrameHeader, AnyOtherKindIsAcceptedAsInvalid) {
    for (const char* const kind : {"00 00 00 01", "00 00 00 02", "00 00 00 04", "00 00 00 07", "03 00 00 00"}) {
        SCOPED_TRACE(kind);
        type = kUntouchedType;
        EXPECT_TRUE(read(32, std::string("00 00 00 28 00 00 00 20 ") + kind + " 00 00 00 00" + kFiller));
        EXPECT_EQ(type, RawMessage::INVALID);
        EXPECT_EQ(bodyLength, 8U);
    }
}

TEST_F(FrameHeader, SubKindFillerAndEndMarkAreIgnored) {
    EXPECT_TRUE(read(32,
                     "00 00 00 2C 00 00 00 20 00 00 00 00 DE AD BE EF "
                     "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F"));
    EXPECT_EQ(type, RawMessage::DATA);
    EXPECT_EQ(bodyLength, 12U);
}

TEST_F(FrameHeader, FrameOfThirtyThreeBytesHasABodyOfOne) {
    EXPECT_TRUE(read(32, std::string("00 00 00 21 00 00 00 20 00 00 00 00 00 00 00 00") + kFiller));
    EXPECT_EQ(bodyLength, 1U);
}

TEST_F(FrameHeader, FrameLengthHasNoUpperBound) {
    EXPECT_TRUE(read(32, std::string("FF FF FF FF 00 00 00 20 00 00 00 00 00 00 00 00") + kFiller));
    EXPECT_EQ(bodyLength, 0xFFFFFFDF);
}

TEST_F(FrameHeader, FrameOfExactlyThirtyTwoBytesClosesTheConnection) {
    EXPECT_FALSE(read(32, std::string("00 00 00 20 00 00 00 20 00 00 00 00 00 00 00 00") + kFiller));
    EXPECT_EQ(bodyLength, 32U);
    expectClosed("Invalid message data received (32). Closing connection.\n");
    EXPECT_EQ(captured.errInsertions(), 1);
}

TEST_F(FrameHeader, FrameOfThirtyOneBytesClosesTheConnection) {
    EXPECT_FALSE(read(32, std::string("00 00 00 1F 00 00 00 20 00 00 00 00 00 00 00 00") + kFiller));
    EXPECT_EQ(bodyLength, 31U);
    expectClosed("Invalid message data received (31). Closing connection.\n");
}

TEST_F(FrameHeader, FrameLengthOfZeroClosesTheConnection) {
    EXPECT_FALSE(read(32, std::string("00 00 00 00 00 00 00 20 00 00 00 00 00 00 00 00") + kFiller));
    EXPECT_EQ(bodyLength, 0U);
    expectClosed("Invalid message data received (0). Closing connection.\n");
}

TEST_F(FrameHeader, HeaderLengthMustBeThirtyTwo) {
    for (const char* const length : {"00 00 00 00", "00 00 00 1F", "00 00 00 21", "20 00 00 00", "00 00 01 20"}) {
        SCOPED_TRACE(length);
        const CapturedStreams own;
        engine.pretendState(CSClient::STATE_READY);
        EXPECT_FALSE(read(32, std::string("00 00 00 2C ") + length + " 00 00 00 00 00 00 00 00" + kFiller));
        EXPECT_EQ(own.err(), "Invalid header data received. Closing connection.\n");
        EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
        EXPECT_EQ(type, kUntouchedType);
        EXPECT_EQ(bodyLength, kUntouchedLength);
    }
}

TEST_F(FrameHeader, HeaderLengthIsExaminedBeforeTheFrameLength) {
    EXPECT_FALSE(read(32, kZeroHeader));
    EXPECT_EQ(bodyLength, kUntouchedLength);
    expectClosed("Invalid header data received. Closing connection.\n");
}

TEST_F(FrameHeader, QuietHostChangesNothing) {
    EXPECT_FALSE(read(-2, kZeroHeader, EAGAIN));
    EXPECT_EQ(captured.err() + captured.out(), "");
    EXPECT_EQ(engine.getState(), CSClient::STATE_READY);
    EXPECT_EQ(callbacks.states(), "");
    EXPECT_EQ(type, kUntouchedType);
    EXPECT_EQ(bodyLength, kUntouchedLength);
}

TEST_F(FrameHeader, EndOfTheStreamClosesTheConnection) {
    EXPECT_FALSE(read(0, kZeroHeader));
    EXPECT_EQ(bodyLength, kUntouchedLength);
    expectClosed("Connection closed by server.\n");
    EXPECT_EQ(captured.errInsertions(), 1);
}

TEST_F(FrameHeader, ReadErrorIsReportedTwice) {
    EXPECT_FALSE(read(-1, kZeroHeader, ECONNRESET));
    EXPECT_EQ(bodyLength, kUntouchedLength);
    expectClosed(
        "Read error (104). Closing connection.\n"
        "Invalid header data received. Closing connection.\n");
    EXPECT_EQ(captured.errInsertions(), 2);
}

TEST_F(FrameHeader, OneByteIsAReadError) {
    EXPECT_FALSE(read(1, "00 00 00 00 00 00 00 20 00 00 00 00 00 00 00 00" + std::string(kFiller)));
    EXPECT_EQ(bodyLength, kUntouchedLength);
    expectClosed("Read error (bytes read 1). Closing connection.\n");
}

TEST_F(FrameHeader, ThirtyOneBytesAreAReadError) {
    EXPECT_FALSE(read(31, std::string("00 00 00 2C 00 00 00 20 00 00 00 00 00 00 00 00") + kFiller));
    EXPECT_EQ(bodyLength, kUntouchedLength);
    expectClosed("Read error (bytes read 31). Closing connection.\n");
    EXPECT_EQ(captured.errInsertions(), 1);
}

TEST_F(SilentFrameHeader, EndOfTheStreamClosesWithoutALine) {
    EXPECT_FALSE(read(0, kZeroHeader));
    expectClosedInSilence();
}

TEST_F(SilentFrameHeader, ReadErrorClosesWithoutALine) {
    EXPECT_FALSE(read(-1, kZeroHeader, ECONNRESET));
    expectClosedInSilence();
}

TEST_F(SilentFrameHeader, ShortReadClosesWithoutALine) {
    EXPECT_FALSE(read(31, kZeroHeader));
    expectClosedInSilence();
}

TEST_F(SilentFrameHeader, WrongHeaderLengthClosesWithoutALine) {
    EXPECT_FALSE(read(32, std::string("00 00 00 2C 00 00 00 21 00 00 00 00 00 00 00 00") + kFiller));
    expectClosedInSilence();
}

TEST_F(SilentFrameHeader, EmptyBodyClosesWithoutALine) {
    EXPECT_FALSE(read(32, std::string("00 00 00 20 00 00 00 20 00 00 00 00 00 00 00 00") + kFiller));
    expectClosedInSilence();
}

TEST_F(ReconnectingFrameHeader, EndOfTheStreamBeginsAReconnection) {
    const Stopwatch stopwatch;
    EXPECT_FALSE(read(0, kZeroHeader));
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(captured.err(), "Connection closed by server.\n");
    EXPECT_EQ(captured.out(), "Attempting to reconnect...\n");
    EXPECT_EQ(callbacks.states(), "4->5 5->1");
}

TEST_F(ReconnectingFrameHeader, ReadErrorClosesTwiceAndSleepsTwice) {
    const Stopwatch stopwatch;
    EXPECT_FALSE(read(-1, kZeroHeader, ECONNRESET));
    EXPECT_GE(stopwatch.seconds(), 1.98);
    EXPECT_EQ(captured.err(),
              "Read error (104). Closing connection.\n"
              "Invalid header data received. Closing connection.\n");
    EXPECT_EQ(captured.out(), "Attempting to reconnect...\n");
    EXPECT_EQ(callbacks.states(), "4->5 5->1");
}

TEST_F(ReconnectingFrameHeader, InStateConnectedAFailureLeadsStraightBackToConnecting) {
    engine.pretendState(CSClient::STATE_CONNECTED);
    const Stopwatch stopwatch;
    EXPECT_FALSE(read(31, kZeroHeader));
    EXPECT_TRUE(isOneSecond(stopwatch.seconds())) << stopwatch.seconds();
    EXPECT_EQ(captured.out(), "");
    EXPECT_EQ(callbacks.states(), "2->1");
}

TEST_F(ReconnectingFrameHeader, QuietHostChangesNothing) {
    EXPECT_FALSE(read(-2, kZeroHeader, EAGAIN));
    EXPECT_EQ(captured.err() + captured.out(), "");
    EXPECT_EQ(callbacks.states(), "");
}

}  // namespace
}  // namespace com_tesk::test
