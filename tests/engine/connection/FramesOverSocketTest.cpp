// Frames of a scripted host over a real connection. The tests of FramesOverSocket run over each transport.

#include <set>
#include <thread>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "tests/engine/connection/ConnectionFixtures.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;

/// Records the results of reads, each as "count:result". A test sends the next piece only after the one before.
class ReadLog {
  public:
    void add(unsigned int count, int result) {
        const std::lock_guard<std::mutex> lock(mutex);
        reads.insert(std::to_string(count) + ":" + std::to_string(result));
    }

    bool waitFor(const std::string& read) const {
        return waitUntil([this, &read] {
            const std::lock_guard<std::mutex> lock(mutex);
            return reads.count(read) != 0;
        });
    }

  private:
    mutable std::mutex mutex;
    std::set<std::string> reads;
};

template <typename Transport>
class Observed : public Transport {
  public:
    template <typename... Arguments>
    explicit Observed(ReadLog& logOfReads, const Arguments&... arguments) : Transport(arguments...), log(logOfReads) {}

    int readMessage(unsigned int count, RawMessage& message) override {
        const int result = Transport::readMessage(count, message);
        const int error = errno;
        log.add(count, result);
        errno = error;
        return result;
    }

  private:
    ReadLog& log;
};

/// The header of a data frame with a body of ten bytes, and the body.
const std::string kHeaderOfTen =
    "00 00 00 2A 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF ";
constexpr const char* kTen = "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9";
constexpr const char* kTenReceived = "1: A0 A1 A2 A3 A4 A5 A6 A7 A8 A9";

/// An engine that is connected to a scripted host.
class FramesOverSocket : public HostTest {
  protected:
    void SetUp() override {
        createForHost(0, newTransport());
        openToHost();
        accept();
    }

    CSCommsInterfaceTCP* newTransport() {
        if (!isBufferedUnderTest()) {
            return new Observed<CSCommsInterfaceTCP>(reads, CSCommsInterfaceTCP::Options());
        }
        CSCommsInterfaceTCPBuffered::Bounds bounds;
        bounds.silenceInFrame = milliseconds(3'000);
        return new Observed<CSCommsInterfaceTCPBuffered>(reads, CSCommsInterfaceTCP::Options(), bounds);
    }

    void expectReceived(const Strings& bodies) {
        EXPECT_TRUE(waitUntil([&] { return engine->received().size() >= bodies.size(); }));
        EXPECT_EQ(engine->received(), bodies);
        EXPECT_EQ(captured->err(), "");
    }

    void expectClosed(const std::string& err) {
        EXPECT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
        expectEvents("0->1 1->2 2->4 4->3 3->0", err);
    }

    /// Sends the first four bytes of a body of ten, and waits until the transport has read them.
    void sendPartOfBody() {
        peer->send(kHeaderOfTen + "A0 A1 A2 A3");
        ASSERT_TRUE(reads.waitFor(isBufferedUnderTest() ? "32:32" : "10:4"));
    }

    ReadLog reads;
};

TEST_F(FramesOverSocket, AreDeliveredOneByOne) {
    peer->send(kHeaderOfTen + "00 01 02 03 04 05 06 07 08 09");
    peer->send(hexFrame("0A") + " " + hexFrame("0B 0C") + " " + hexFrame("0D"));
    expectReceived({"1: 00 01 02 03 04 05 06 07 08 09", "1: 0A", "1: 0B 0C", "1: 0D"});
    peer->send(hexFrame("0E") + " " + hexFrame("0F"));
    peer->close();
    expectClosed("Connection closed by server.\n");
    EXPECT_EQ(engine->received().back(), "1: 0F") << "before the end of the stream";
}

TEST_F(FramesOverSocket, IdleConnectionStaysAndPrintsNothing) {
    EXPECT_TRUE(reads.waitFor("32:-2"));
    EXPECT_TRUE(peer->isQuietFor(milliseconds(500)));
    expectEvents("0->1 1->2 2->4");
    peer->send(hexFrame("0A"));
    expectReceived({"1: 0A"});
}

/// The host sends these bytes, and then closes or resets the connection or stays silent.
struct HostEnd {
    const char* name;
    std::string bytes;
    enum { CLOSES, RESETS, STAYS } action;
    const char* err;
};

class EndOfFrames : public FramesOverSocket, public testing::WithParamInterface<HostEnd> {};

TEST_P(EndOfFrames, ClosesTheConnection) {
    peer->send(GetParam().bytes);
    if (GetParam().bytes.size() > kHeaderOfTen.size()) {
        ASSERT_TRUE(reads.waitFor(isBufferedUnderTest() ? "32:32" : "10:4"));
    }
    if (GetParam().action == HostEnd::CLOSES) {
        peer->close();
    } else if (GetParam().action == HostEnd::RESETS) {
        peer->reset();
    }
    expectClosed(GetParam().err);
    EXPECT_TRUE(engine->received().empty());
    EXPECT_TRUE(GetParam().action != HostEnd::STAYS || peer->waitForEnd());
}

const std::string kPartOfBody = kHeaderOfTen + "A0 A1 A2 A3";
const std::string kEmptyFrame =
    "00 00 00 20 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF";
const std::string kTooLargeFrame =
    "01 00 00 01 00 00 00 20 00 00 00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF";
constexpr const char* kResetLines =
    "Read error (104). Closing connection.\n"
    "Invalid header data received. Closing connection.\n";
constexpr const char* kStallLines =
    "Read error (110). Closing connection.\n"
    "Invalid header data received. Closing connection.\n";

INSTANTIATE_TEST_SUITE_P(
    Every, EndOfFrames,
    testing::Values(HostEnd{"EmptyFrame", kEmptyFrame, HostEnd::STAYS,
                            "Invalid message data received (32). Closing connection.\n"},
                    HostEnd{"CloseBetweenFrames", "", HostEnd::CLOSES, "Connection closed by server.\n"},
                    HostEnd{"ResetBetweenFrames", "", HostEnd::RESETS, kResetLines},
                    HostEnd{"CloseInABody", kPartOfBody, HostEnd::CLOSES, "EXIT: Connection closed by server.\n"},
                    HostEnd{"ResetInABody", kPartOfBody, HostEnd::RESETS, "EXIT: Read error.\n"}),
    kByName);
INSTANTIATE_TEST_SUITE_P(StandardFrames, EndOfFrames,
                         testing::Values(HostEnd{"HeaderInTwoPieces", kHeaderOfTen.substr(0, 31 * 3), HostEnd::STAYS,
                                                 "Read error (bytes read 31). Closing connection.\n"}),
                         kByName);
INSTANTIATE_TEST_SUITE_P(
    BufferedFrames, EndOfFrames,
    testing::Values(HostEnd{"TooLargeFrame", kTooLargeFrame, HostEnd::STAYS, "EXIT: Read error.\n"},
                    HostEnd{"StallInABody", kPartOfBody, HostEnd::STAYS, "EXIT: Read error.\n"},
                    HostEnd{"StallInAHeader", "00 00 00 2A", HostEnd::STAYS, kStallLines},
                    HostEnd{"CloseInAHeader", "00 00 00 2A", HostEnd::CLOSES, "Connection closed by server.\n"}),
    kByName);

/// Users see the zeros and cuts of the standard transport.
using StandardFrames = FramesOverSocket;

TEST_F(StandardFrames, TenBytesAsFourAndSixAreDeliveredAsSixteen) {
    sendPartOfBody();
    peer->send("A4 A5 A6 A7 A8 A9");
    expectReceived({"1: A0 A1 A2 A3 00 00 00 00 00 00 A4 A5 A6 A7 A8 A9"});
}

TEST_F(StandardFrames, TenBytesAfterATimeoutAreDeliveredAsTwenty) {
    peer->send(kHeaderOfTen);
    ASSERT_TRUE(reads.waitFor("10:-2"));
    peer->send(kTen);
    expectReceived({"1: 00 00 00 00 00 00 00 00 00 00 A0 A1 A2 A3 A4 A5 A6 A7 A8 A9"});
}

TEST_F(StandardFrames, ShortReadAfterOthersCutsTheBodyToTheRequestedCount) {
    sendPartOfBody();
    peer->send("A4 A5 A6");
    ASSERT_TRUE(reads.waitFor("6:3"));
    peer->send("A7 A8 A9");
    expectReceived({"1: A0 A1 A2 A3 00 00 A7 A8 A9"});
}

/// The buffered transport delivers whole bodies, however they are split.
using BufferedFrames = FramesOverSocket;

TEST_F(BufferedFrames, BodyInThreePiecesAroundATimeoutIsDelivered) {
    sendPartOfBody();
    ASSERT_TRUE(reads.waitFor("10:-2"));
    peer->send("A4 A5 A6");
    std::this_thread::sleep_for(milliseconds(20));
    peer->send("A7 A8 A9");
    expectReceived({kTenReceived});
}

}  // namespace
}  // namespace com_tesk::test
