#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {
namespace {

using Strings = std::vector<std::string>;
using std::chrono::milliseconds;

/// A buffered transport that writes down what its reads give, each as "count:result".
class ObservedBuffered : public CSCommsInterfaceTCPBuffered {
  public:
    explicit ObservedBuffered(const Bounds& givenBounds) : CSCommsInterfaceTCPBuffered(Options(), givenBounds) {}

    int readMessage(unsigned int count, RawMessage& message) override {
        const int result = CSCommsInterfaceTCPBuffered::readMessage(count, message);
        const int error = errno;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            reads.insert(std::to_string(count) + ":" + std::to_string(result));
        }
        errno = error;
        return result;
    }

    bool waitForRead(const std::string& read) const {
        return waitUntil([this, &read] {
            const std::lock_guard<std::mutex> lock(mutex);
            return reads.count(read) != 0;
        });
    }

  private:
    mutable std::mutex mutex;
    std::set<std::string> reads;
};

/// An engine with the buffered transport that is connected to a scripted host, its version request taken.
class FramesOverBuffered : public testing::Test {
  protected:
    FramesOverBuffered() {
        CSCommsInterfaceTCPBuffered::Bounds bounds;
        bounds.silenceInFrame = milliseconds(3'000);
        auto* const newTransport = new ObservedBuffered(bounds);
        engine.changeCommsInterface(newTransport);
        observed = newTransport;
        engine.addCallbackInterface(&callbacks);
        EXPECT_EQ(engine.openConnection(ScriptedHost::address(), host.port(), nullptr), 0);
        peer = host.accept();
        EXPECT_TRUE(peer && peer->receiveFrame() == versionRequestFrame());
    }

    bool waitForBodies(std::size_t count) {
        return waitUntil([this, count] { return engine.received().size() >= count; });
    }

    /// The header of a data frame with a body of ten bytes.
    static const char* headerOfTen() {
        return "00 00 00 2A 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF";
    }

    CapturedStreams captured;
    RecordingCallbacks callbacks;
    ScriptedHost host;
    ConnectionEngine engine;
    EndOnExit end{engine};
    std::unique_ptr<ScriptedHost::Peer> peer;
    ObservedBuffered* observed = nullptr;
};

TEST_F(FramesOverBuffered, BodyThatArrivesWholeIsDeliveredExactly) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" 00 01 02 03 04 05 06 07 08 09"));
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: 00 01 02 03 04 05 06 07 08 09"});
}

TEST_F(FramesOverBuffered, FramesSentTogetherAreDeliveredOneByOne) {
    ASSERT_TRUE(peer);
    peer->send(hexFrame("0A") + " " + hexFrame("0B 0C") + " " + hexFrame("0D"));
    ASSERT_TRUE(waitForBodies(3));
    EXPECT_EQ(engine.received(), (Strings{"1: 0A", "1: 0B 0C", "1: 0D"}));
}

TEST_F(FramesOverBuffered, TenBytesThatArriveAsFourAndSixAreDeliveredAsTen) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" A0 A1 A2 A3"));
    ASSERT_TRUE(observed->waitForRead("32:32"));
    std::this_thread::sleep_for(milliseconds(20));
    peer->send("A4 A5 A6 A7 A8 A9");
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: A0 A1 A2 A3 A4 A5 A6 A7 A8 A9"});
}

TEST_F(FramesOverBuffered, TenBytesThatArriveAfterATimeOutAreDeliveredAsTen) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen());
    ASSERT_TRUE(observed->waitForRead("10:-2"));
    peer->send("A0 A1 A2 A3 A4 A5 A6 A7 A8 A9");
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: A0 A1 A2 A3 A4 A5 A6 A7 A8 A9"});
    EXPECT_EQ(captured.err(), "");
}

TEST_F(FramesOverBuffered, BodyInThreePiecesAroundATimeOutIsDeliveredExactly) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" A0 A1 A2 A3"));
    ASSERT_TRUE(observed->waitForRead("10:-2"));
    peer->send("A4 A5 A6");
    std::this_thread::sleep_for(milliseconds(20));
    peer->send("A7 A8 A9");
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: A0 A1 A2 A3 A4 A5 A6 A7 A8 A9"});
}

TEST_F(FramesOverBuffered, HeaderInTwoPiecesIsDelivered) {
    ASSERT_TRUE(peer);
    peer->send("00 00 00 2A 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
    std::this_thread::sleep_for(milliseconds(50));
    peer->send("FF A0 A1 A2 A3 A4 A5 A6 A7 A8 A9");
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: A0 A1 A2 A3 A4 A5 A6 A7 A8 A9"});
    EXPECT_EQ(captured.err(), "");
}

TEST_F(FramesOverBuffered, HeaderInTwoPiecesAroundATimeOutIsDelivered) {
    ASSERT_TRUE(peer);
    ASSERT_TRUE(observed->waitForRead("32:-2"));
    peer->send("00 00 00 2A 00 00 00");
    std::this_thread::sleep_for(milliseconds(1'500));
    peer->send(
        "20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF A0 A1 A2 A3 A4 A5 A6 A7 A8 A9");
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: A0 A1 A2 A3 A4 A5 A6 A7 A8 A9"});
    EXPECT_EQ(captured.err(), "");
}

TEST_F(FramesOverBuffered, ByteByByteIsDeliveredExactly) {
    ASSERT_TRUE(peer);
    for (const unsigned char byte : hex(hexFrame("0A 0B 0C") + " " + hexFrame("0D"))) {
        peer->send(Bytes{byte});
        std::this_thread::sleep_for(milliseconds(2));
    }
    ASSERT_TRUE(waitForBodies(2));
    EXPECT_EQ(engine.received(), (Strings{"1: 0A 0B 0C", "1: 0D"}));
}

TEST_F(FramesOverBuffered, EverySplitPointOfAFrameIsInvisible) {
    ASSERT_TRUE(peer);
    const Bytes frame = hex(hexFrame("0A 0B 0C 0D"));
    Strings expected;
    for (std::size_t split = 1; split < frame.size(); ++split) {
        const auto middle = frame.begin() + static_cast<std::ptrdiff_t>(split);
        peer->send(Bytes(frame.begin(), middle));
        std::this_thread::sleep_for(milliseconds(3));
        peer->send(Bytes(middle, frame.end()));
        expected.emplace_back("1: 0A 0B 0C 0D");
        ASSERT_TRUE(waitForBodies(expected.size())) << "split at " << split;
    }
    EXPECT_EQ(engine.received(), expected);
}

TEST_F(FramesOverBuffered, FrameOfExactlyThirtyTwoBytesClosesTheConnection) {
    ASSERT_TRUE(peer);
    peer->send("00 00 00 20 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "Invalid message data received (32). Closing connection.\n");
    EXPECT_TRUE(engine.received().empty());
}

TEST_F(FramesOverBuffered, FrameThatIsTooLargeClosesTheConnection) {
    ASSERT_TRUE(peer);
    peer->send("01 00 00 01 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
    EXPECT_TRUE(peer->waitForEnd());
}

TEST_F(FramesOverBuffered, HostThatStallsInABodyForTooLongEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" A0"));
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
}

TEST_F(FramesOverBuffered, HostThatStallsInAHeaderForTooLongEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->send("00 00 00 2A");
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(),
              "Read error (110). Closing connection.\n"
              "Invalid header data received. Closing connection.\n");
}

TEST_F(FramesOverBuffered, HostThatClosesBetweenFramesEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->close();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "Connection closed by server.\n");
}

TEST_F(FramesOverBuffered, HostThatClosesInAHeaderEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->send("00 00 00 2A");
    peer->close();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "Connection closed by server.\n");
}

TEST_F(FramesOverBuffered, HostThatResetsBetweenFramesEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->reset();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(),
              "Read error (104). Closing connection.\n"
              "Invalid header data received. Closing connection.\n");
}

TEST_F(FramesOverBuffered, HostThatClosesInTheMiddleOfABodyEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" A0 A1 A2 A3"));
    ASSERT_TRUE(observed->waitForRead("32:32"));
    peer->close();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "EXIT: Connection closed by server.\n");
    EXPECT_TRUE(engine.received().empty());
}

TEST_F(FramesOverBuffered, HostThatResetsInTheMiddleOfABodyEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" A0 A1 A2 A3"));
    ASSERT_TRUE(observed->waitForRead("32:32"));
    peer->reset();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
    EXPECT_TRUE(engine.received().empty());
}

TEST_F(FramesOverBuffered, IdleConnectionStaysAndPrintsNothing) {
    ASSERT_TRUE(peer);
    EXPECT_TRUE(observed->waitForRead("32:-2"));
    EXPECT_TRUE(peer->isQuietFor(milliseconds(1'500)));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4");
    EXPECT_EQ(captured.err() + captured.out(), "");
    peer->send(hexFrame("0A"));
    EXPECT_TRUE(waitForBodies(1));
}

TEST_F(FramesOverBuffered, MessagesArriveWhileTheApplicationSends) {
    ASSERT_TRUE(peer);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::CONTROL, "01 02")), 0U);
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 22 00 00 00 20 00 00 00 03 00 00 00 02 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FE 01 02");
    peer->send(hexFrame("0A 0B"));
    EXPECT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: 0A 0B"});
}

TEST_F(FramesOverBuffered, LastFrameBeforeTheEndOfTheStreamIsDelivered) {
    ASSERT_TRUE(peer);
    peer->send(hexFrame("0A") + " " + hexFrame("0B"));
    peer->close();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(engine.received(), (Strings{"1: 0A", "1: 0B"}));
}

TEST_F(FramesOverBuffered, BodyOfAMegabyteIsDeliveredExactly) {
    ASSERT_TRUE(peer);
    Bytes body(1U << 20U);
    for (std::size_t i = 0; i < body.size(); ++i) {
        body[i] = static_cast<unsigned char>(i * 7 + i / 251);
    }
    peer->send("00 10 00 20 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
    peer->send(body);
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_TRUE(engine.received()[0] == "1: " + hexText(body));
}

}  // namespace
}  // namespace com_tesk::test
