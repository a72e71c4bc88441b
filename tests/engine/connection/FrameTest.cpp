#include "tests/engine/connection/ConnectionFixtures.h"

namespace com_tesk::test {
namespace {

using Counts = std::vector<unsigned int>;

constexpr const char* kFiller = " FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF";

/// The header of a frame.
std::string header(const std::string& frameLength, const std::string& kind = "00 00 00 00",
                   const std::string& headerLength = "00 00 00 20") {
    return frameLength + " " + headerLength + " " + kind + " 00 00 00 00" + kFiller;
}

constexpr const char* kZeroHeader =
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

/// Reads one header. The results start as values that no header gives.
class FrameHeader : public ConnectionTest {
  protected:
    bool read(int result, const std::string& headerHex, int error = 0) {
        type = kUntouchedType;
        bodyLength = kUntouchedLength;
        transport().queueRead(result, headerHex, error);
        return engine->readMessageHeader(type, bodyLength);
    }

    static constexpr RawMessage::Type kUntouchedType = static_cast<RawMessage::Type>(77);
    static constexpr unsigned int kUntouchedLength = 123456;

    RawMessage::Type type = kUntouchedType;
    unsigned int bodyLength = kUntouchedLength;
};

TEST_F(FrameHeader, GivesTypeAndBodyLength) {
    struct Row {
        std::string header;
        RawMessage::Type type;
        unsigned int bodyLength;
    };
    for (const Row& row : {Row{header("00 00 00 2C"), RawMessage::DATA, 12},
                           {header("00 00 00 21"), RawMessage::DATA, 1},
                           {header("FF FF FF FF"), RawMessage::DATA, 0xFFFFFFDF},
                           {header("00 00 00 24", "00 00 00 03"), RawMessage::CONTROL, 4},
                           {header("00 00 00 28", "00 00 00 01"), RawMessage::INVALID, 8},
                           {header("00 00 00 28", "00 00 00 02"), RawMessage::INVALID, 8},
                           {header("00 00 00 28", "00 00 00 04"), RawMessage::INVALID, 8},
                           {header("00 00 00 28", "00 00 00 07"), RawMessage::INVALID, 8},
                           {header("00 00 00 28", "03 00 00 00"), RawMessage::INVALID, 8},
                           // The sub-kind, the filler and the end mark are ignored.
                           {"00 00 00 2C 00 00 00 20 00 00 00 00 DE AD BE EF "
                            "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F",
                            RawMessage::DATA, 12}}) {
        SCOPED_TRACE(row.header);
        connect(0);
        EXPECT_TRUE(read(32, row.header));
        EXPECT_EQ(type, row.type);
        EXPECT_EQ(bodyLength, row.bodyLength);
        EXPECT_EQ(transport().readCounts(), Counts{32});
        EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
        expectEvents("");
    }
}

TEST_F(FrameHeader, ThatIsRefusedClosesTheConnection) {
    struct Row {
        int result;
        std::string header;
        int error;
        unsigned int bodyLength;
        std::string lines;
    };
    const std::string invalid = "Invalid header data received. Closing connection.\n";
    const std::string data = "00 00 00 00";
    for (const Row& row : {
             Row{32, header("00 00 00 20"), 0, 32, "Invalid message data received (32). Closing connection.\n"},
             {32, header("00 00 00 1F"), 0, 31, "Invalid message data received (31). Closing connection.\n"},
             {32, header("00 00 00 00"), 0, 0, "Invalid message data received (0). Closing connection.\n"},
             {32, header("00 00 00 2C", data, "00 00 00 00"), 0, kUntouchedLength, invalid},
             {32, header("00 00 00 2C", data, "00 00 00 1F"), 0, kUntouchedLength, invalid},
             {32, header("00 00 00 2C", data, "00 00 00 21"), 0, kUntouchedLength, invalid},
             {32, header("00 00 00 2C", data, "20 00 00 00"), 0, kUntouchedLength, invalid},
             {32, header("00 00 00 2C", data, "00 00 01 20"), 0, kUntouchedLength, invalid},
             {32, kZeroHeader, 0, kUntouchedLength, invalid},  // The header length is examined first.
             {0, kZeroHeader, 0, kUntouchedLength, "Connection closed by server.\n"},
             {-1, kZeroHeader, ECONNRESET, kUntouchedLength, "Read error (104). Closing connection.\n" + invalid},
             {1, header("00 00 00 2C"), 0, kUntouchedLength, "Read error (bytes read 1). Closing connection.\n"},
             {31, header("00 00 00 2C"), 0, kUntouchedLength, "Read error (bytes read 31). Closing connection.\n"},
         }) {
        for (const unsigned int optionFlags : {0U, kSilent}) {
            SCOPED_TRACE(row.lines + row.header);
            connect(optionFlags);
            EXPECT_FALSE(read(row.result, row.header, row.error));
            EXPECT_EQ(type, kUntouchedType);
            EXPECT_EQ(bodyLength, row.bodyLength);
            expectEvents("4->3", optionFlags == kSilent ? "" : row.lines);
        }
    }
}

TEST_F(FrameHeader, TimeoutChangesNothing) {
    for (const unsigned int optionFlags : {0U, kReconnect}) {
        connect(optionFlags);
        EXPECT_FALSE(read(-2, kZeroHeader, EAGAIN));
        EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
        EXPECT_EQ(type, kUntouchedType);
        EXPECT_EQ(bodyLength, kUntouchedLength);
        expectEvents("");
    }
}

TEST_F(FrameHeader, WithReconnectAReadErrorClosesTwiceAndPausesTwice) {
    connect(kReconnect);
    const Stopwatch stopwatch;
    EXPECT_FALSE(read(-1, kZeroHeader, ECONNRESET));
    EXPECT_GE(stopwatch.seconds(), 1.98);
    expectEvents("4->5 5->1",
                 "Read error (104). Closing connection.\n"
                 "Invalid header data received. Closing connection.\n",
                 kReconnectLine);
}

class FrameReceiving : public ConnectionTest {
  protected:
    /// A header and then other reads, which give these results.
    void queue(const std::string& headerHex, const std::vector<FakeTransport::Read>& reads) {
        transport().queueRead(32, headerHex);
        for (const FakeTransport::Read& read : reads) {
            transport().queueRead(read.result, read.hexBytes, read.error);
        }
    }
};

TEST_F(FrameReceiving, DeliversTheBodyWithoutItsHeader) {
    struct Row {
        std::string header;
        std::vector<FakeTransport::Read> reads;
        std::string received;
        Counts counts;
    };
    for (const Row& row : {
             Row{header("00 00 00 24"), {{4, "01 02 03 04", 0}}, "1: 01 02 03 04", {32, 4}},
             {header("00 00 00 21"), {{1, "5A", 0}}, "1: 5A", {32, 1}},
             {header("00 00 00 22", "00 00 00 03"), {{2, "0A 0B", 0}}, "2: 0A 0B", {32, 2}},
             {header("00 00 00 22", "00 00 00 07"), {{2, "0A 0B", 0}}, "0: 0A 0B", {32, 2}},
             // Only the missing bytes are requested.
             {header("00 00 00 2A"),
              {{4, "01 02 03 04", 0}, {5, "05 06 07 08 09", 0}, {1, "0A", 0}},
              "1: 01 02 03 04 05 06 07 08 09 0A",
              {32, 10, 6, 1}},
             // In a body, errno alone distinguishes a time-out.
             {header("00 00 00 22"), {{-1, "", EAGAIN}, {2, "01 02", 0}}, "1: 01 02", {32, 2, 2}},
         }) {
        SCOPED_TRACE(row.received);
        connect(0);
        queue(row.header, row.reads);
        engine->receiveMessage();
        EXPECT_EQ(engine->received(), Strings{row.received});
        EXPECT_EQ(transport().readCounts(), row.counts);
        EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
        expectEvents("");
    }
}

TEST_F(FrameReceiving, ReadsAtMostOneFrameAtATime) {
    connect();
    transport().queueFrame("01");
    transport().queueFrame("02");
    engine->receiveMessage();
    EXPECT_EQ(engine->received(), Strings{"1: 01"});
    engine->receiveMessage();
    EXPECT_EQ(engine->received(), (Strings{"1: 01", "1: 02"}));
}

TEST_F(FrameReceiving, EndsAfterAnIncompleteHeader) {
    connect(0);
    engine->receiveMessage();
    EXPECT_EQ(transport().readCounts(), Counts{32});
    expectEvents("");
    queue(header("00 00 00 20"), {});
    engine->receiveMessage();
    EXPECT_EQ(transport().readCounts(), (Counts{32, 32}));
    EXPECT_TRUE(engine->received().empty());
}

TEST_F(FrameReceiving, WaitsForTheRestOfABodyWithoutLimit) {
    connect(0);
    queue(header("00 00 00 24"), std::vector<FakeTransport::Read>(500, {-2, "", EAGAIN}));
    transport().queueRead(4, "01 02 03 04");
    engine->receiveMessage();
    EXPECT_EQ(engine->received(), Strings{"1: 01 02 03 04"});
    EXPECT_EQ(transport().readCounts().size(), 502U);
    EXPECT_EQ(transport().readCounts().back(), 4U);
    expectEvents("");
}

TEST_F(FrameReceiving, FailureInABodyDropsTheMessageAndClosesTheConnection) {
    struct Row {
        FakeTransport::Read read;
        const char* line;
    };
    for (const Row& row :
         {Row{{0, "", 0}, "EXIT: Connection closed by server.\n"}, {{-1, "", ECONNRESET}, "EXIT: Read error.\n"}}) {
        for (const unsigned int optionFlags : {0U, kSilent, kReconnect}) {
            SCOPED_TRACE(row.line);
            const bool isReconnecting = optionFlags == kReconnect;
            connect(optionFlags);
            queue(header("00 00 00 2A"), {{4, "01 02 03 04", 0}, row.read});
            const Stopwatch stopwatch;
            engine->receiveMessage();
            EXPECT_EQ(isOneSecond(stopwatch.seconds()), isReconnecting) << stopwatch.seconds();
            expectEvents(isReconnecting ? "4->5 5->1" : "4->3", optionFlags == kSilent ? "" : row.line,
                         isReconnecting ? kReconnectLine : "");
            EXPECT_TRUE(engine->received().empty());
        }
    }
}

TEST_F(FrameReceiving, HandlerMayEndTheConnectionAndHoldsNoLock) {
    connect(0);
    engine->onMessage = [this] {
        EXPECT_FALSE(engine->holdsAnyLock());
        EXPECT_EQ(engine->openConnection(1, 1, nullptr), 2);
        engine->forceCloseConnection();
    };
    transport().queueFrame("01");
    engine->receiveMessage();
    expectEvents("4->3");
}

using FrameSending = ConnectionTest;

TEST_F(FrameSending, PutsTheHeaderBeforeTheBody) {
    const std::string endMark = " FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FE";
    const std::string data = " 00 00 00 20 00 00 00 00 00 00 00 00" + std::string(kFiller);
    const std::string control = " 00 00 00 20 00 00 00 03 00 00 00 02" + endMark;
    struct Row {
        RawMessage::Type type;
        std::string body;
        std::string frame;
    };
    for (const Row& row : {
             // A data body of nine bytes or more contains its length in bytes 4 to 7.
             Row{RawMessage::DATA, "04 02 7F FF 00 00 00 00 00 7F 00 01",
                 "00 00 00 2C" + data + " 04 02 7F FF 00 00 00 0C 00 7F 00 01"},
             {RawMessage::DATA, "A0 A1 A2 A3 DE AD BE EF A8 A9",
              "00 00 00 2A" + data + " A0 A1 A2 A3 00 00 00 0A A8 A9"},
             {RawMessage::DATA, "A0 A1 A2 A3 A4 A5 A6 A7 A8", "00 00 00 29" + data + " A0 A1 A2 A3 00 00 00 09 A8"},
             {RawMessage::DATA, "A0 A1 A2 A3 A4 A5 A6 A7", "00 00 00 28" + data + " A0 A1 A2 A3 A4 A5 A6 A7"},
             {RawMessage::DATA, "5A", "00 00 00 21" + data + " 5A"},
             {RawMessage::DATA, "", "00 00 00 20" + data},
             {RawMessage::CONTROL, "01 02 03 04", "00 00 00 24" + control + " 01 02 03 04"},
             {RawMessage::CONTROL, "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB",
              "00 00 00 2C" + control + " A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB"},
             {RawMessage::CONTROL, "", "00 00 00 20" + control},
             {static_cast<RawMessage::Type>(9), "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9",
              "00 00 00 2A" + data + " A0 A1 A2 A3 A4 A5 A6 A7 A8 A9"},
         }) {
        connect();
        const RawMessage message = messageOf(row.type, row.body);
        EXPECT_EQ(engine->sendMessage(message), 0U);
        EXPECT_EQ(transport().written(), (Strings{versionRequestFrame(), row.frame}));
        EXPECT_EQ(transport().writtenTypes().back(), row.type);
        EXPECT_EQ(hexText(message), row.body) << "the caller's message does not change";
        EXPECT_EQ(message.getType(), row.type);
    }
}

TEST_F(FrameSending, FrameLengthIsBigEndian) {
    connect();
    RawMessage message(RawMessage::CONTROL);
    message.resize(0x00010203 - 32);
    EXPECT_EQ(engine->sendMessage(message), 0U);
    EXPECT_EQ(transport().written().back().substr(0, 23), "00 01 02 03 00 00 00 20");
}

TEST_F(FrameSending, RequestAfterAControlMessageIsDataAgain) {
    connect();
    EXPECT_EQ(sendControl(*engine), 0U);
    EXPECT_EQ(sendControl(*engine), 0U);
    EXPECT_EQ(engine->registerOutputs({output("A")}), 0);
    EXPECT_EQ(transport().writtenTypes(), (std::vector<RawMessage::Type>{RawMessage::DATA, RawMessage::CONTROL,
                                                                         RawMessage::CONTROL, RawMessage::DATA}));
}

TEST_F(FrameSending, InvalidMessageIsRefusedWithoutAWrite) {
    connect(0);
    EXPECT_EQ(engine->sendMessage(messageOf(RawMessage::INVALID, "01 02 03 04")), 3U);
    EXPECT_EQ(transport().written(), Strings{versionRequestFrame()});
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    expectEvents("");
}

TEST_F(FrameSending, WithoutAConnectionWritesNothing) {
    for (const CSClient::State state : {CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                        CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        SCOPED_TRACE(state);
        create(0);
        engine->pretendState(state);
        EXPECT_EQ(engine->sendMessage(messageOf(RawMessage::DATA, "01 02")), 1U);
        EXPECT_EQ(engine->sendMessage(messageOf(RawMessage::INVALID, "01")), 1U) << "the type is examined later";
        EXPECT_TRUE(transport().written().empty());
        EXPECT_EQ(engine->getState(), state);
        expectEvents("");
    }
}

TEST_F(FrameSending, StateConnectedIsEnough) {
    create();
    engine->pretendState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(sendControl(*engine), 0U);
    EXPECT_EQ(transport().written().size(), 1U);
}

TEST_F(FrameSending, NeedsNoLockOfAStateChangeInProgress) {
    create();
    engine->onVersionRequest = [this] { gate.pass(); };
    const auto connecting = onAnotherThread([this] { engine->connect(); });
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_EQ(sendControl(*engine), 0U);
    EXPECT_EQ(transport().written().size(), 1U);
    gate.open();
}

TEST_F(FrameSending, TwoThreadsMayWriteAtTheSameTime) {
    connect();
    std::atomic<int> inside{0};
    transport().onWrite = [&inside] {
        ++inside;
        EXPECT_TRUE(waitUntil([&inside] { return inside == 2; }));
    };
    auto first = onAnotherThread([this] { return sendControl(*engine); });
    auto second = onAnotherThread([this] { return sendControl(*engine); });
    EXPECT_EQ(first.get(), 0U);
    EXPECT_EQ(second.get(), 0U);
}

}  // namespace
}  // namespace com_tesk::test
