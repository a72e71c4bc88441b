#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {
namespace {

using Strings = std::vector<std::string>;

/// A real transport that writes down what its reads give, each as "count:result": how a host's pieces arrive is up to
/// the system, so a test sends the next piece only when it has seen the one before arrive.
class ObservedTransport : public CSCommsInterfaceTCP {
  public:
    ObservedTransport() : CSCommsInterfaceTCP(Options()) {}

    int readMessage(unsigned int count, RawMessage& message) override {
        const int result = CSCommsInterfaceTCP::readMessage(count, message);
        const int error = errno;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            reads.push_back(std::to_string(count) + ":" + std::to_string(result));
        }
        errno = error;
        return result;
    }

    bool waitForRead(const std::string& read) const {
        return waitUntil([this, &read] {
            const std::lock_guard<std::mutex> lock(mutex);
            for (const std::string& made : reads) {
                if (made == read) {
                    return true;
                }
            }
            return false;
        });
    }

  private:
    mutable std::mutex mutex;
    Strings reads;
};

/// An engine that is connected to a scripted host, its version request taken.
class FramesOverSocket : public testing::Test {
  protected:
    FramesOverSocket() {
        auto* const newTransport = new ObservedTransport;
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
    ObservedTransport* observed = nullptr;
};

TEST_F(FramesOverSocket, BodyThatArrivesWholeIsDeliveredExactly) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" 00 01 02 03 04 05 06 07 08 09"));
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: 00 01 02 03 04 05 06 07 08 09"});
}

TEST_F(FramesOverSocket, FramesSentTogetherAreDeliveredOneByOne) {
    ASSERT_TRUE(peer);
    peer->send(hexFrame("0A") + " " + hexFrame("0B 0C") + " " + hexFrame("0D"));
    ASSERT_TRUE(waitForBodies(3));
    EXPECT_EQ(engine.received(), (Strings{"1: 0A", "1: 0B 0C", "1: 0D"}));
}

TEST_F(FramesOverSocket, TenBytesThatArriveAsFourAndSixAreDeliveredAsSixteen) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" A0 A1 A2 A3"));
    ASSERT_TRUE(observed->waitForRead("10:4"));
    peer->send("A4 A5 A6 A7 A8 A9");
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: A0 A1 A2 A3 00 00 00 00 00 00 A4 A5 A6 A7 A8 A9"});
}

TEST_F(FramesOverSocket, TenBytesThatArriveAfterATimeOutAreDeliveredAsTwenty) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen());
    ASSERT_TRUE(observed->waitForRead("10:-2"));
    peer->send("A0 A1 A2 A3 A4 A5 A6 A7 A8 A9");
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: 00 00 00 00 00 00 00 00 00 00 A0 A1 A2 A3 A4 A5 A6 A7 A8 A9"});
    EXPECT_EQ(captured.err(), "");
}

TEST_F(FramesOverSocket, ShortReadIntoAMessageThatHoldsBytesCutsItBackToTheCountAskedFor) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" A0 A1 A2 A3"));
    ASSERT_TRUE(observed->waitForRead("10:4"));
    peer->send("A4 A5 A6");
    ASSERT_TRUE(observed->waitForRead("6:3"));
    peer->send("A7 A8 A9");
    ASSERT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: A0 A1 A2 A3 00 00 A7 A8 A9"});
}

TEST_F(FramesOverSocket, HeaderInTwoPiecesClosesTheConnection) {
    ASSERT_TRUE(peer);
    peer->send("00 00 00 2A 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "Read error (bytes read 31). Closing connection.\n");
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->3 3->0");
    EXPECT_TRUE(peer->waitForEnd());
}

TEST_F(FramesOverSocket, FrameOfExactlyThirtyTwoBytesClosesTheConnection) {
    ASSERT_TRUE(peer);
    peer->send("00 00 00 20 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "Invalid message data received (32). Closing connection.\n");
    EXPECT_TRUE(engine.received().empty());
}

TEST_F(FramesOverSocket, HostThatClosesBetweenFramesEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->close();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "Connection closed by server.\n");
}

TEST_F(FramesOverSocket, HostThatResetsBetweenFramesEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->reset();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(),
              "Read error (104). Closing connection.\n"
              "Invalid header data received. Closing connection.\n");
}

TEST_F(FramesOverSocket, HostThatClosesInTheMiddleOfABodyEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" A0 A1 A2 A3"));
    ASSERT_TRUE(observed->waitForRead("10:4"));
    peer->close();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "EXIT: Connection closed by server.\n");
    EXPECT_TRUE(engine.received().empty());
}

TEST_F(FramesOverSocket, HostThatResetsInTheMiddleOfABodyEndsTheConnection) {
    ASSERT_TRUE(peer);
    peer->send(headerOfTen() + std::string(" A0 A1 A2 A3"));
    ASSERT_TRUE(observed->waitForRead("10:4"));
    peer->reset();
    EXPECT_TRUE(callbacks.waitFor("state 3->0"));
    EXPECT_EQ(captured.err(), "EXIT: Read error.\n");
    EXPECT_TRUE(engine.received().empty());
}

TEST_F(FramesOverSocket, IdleConnectionStaysAndPrintsNothing) {
    ASSERT_TRUE(peer);
    EXPECT_TRUE(observed->waitForRead("32:-2"));
    EXPECT_TRUE(peer->isQuietFor(std::chrono::milliseconds(1500)));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4");
    EXPECT_EQ(captured.err() + captured.out(), "");
    peer->send(hexFrame("0A"));
    EXPECT_TRUE(waitForBodies(1));
}

TEST_F(FramesOverSocket, MessagesArriveWhileTheApplicationSends) {
    ASSERT_TRUE(peer);
    EXPECT_EQ(engine.sendMessage(messageOf(RawMessage::CONTROL, "01 02")), 0U);
    EXPECT_EQ(peer->receiveFrame(),
              "00 00 00 22 00 00 00 20 00 00 00 03 00 00 00 02 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FE 01 02");
    peer->send(hexFrame("0A 0B"));
    EXPECT_TRUE(waitForBodies(1));
    EXPECT_EQ(engine.received(), Strings{"1: 0A 0B"});
}

}  // namespace
}  // namespace com_tesk::test
