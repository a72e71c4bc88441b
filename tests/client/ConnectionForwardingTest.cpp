#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "comms/ThreadSafety.h"
#include "message/RawMessage.h"
#include "tests/client/ProbedClient.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/FakeTransport.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

/// Writes down what the engine is asked to connect to, and connects to nothing.
class ConnectRecorder : public FakeTransport {
  public:
    bool openConnection(unsigned int address, unsigned int port) override {
        const std::lock_guard<std::mutex> lock(mutex);
        asked = hexWord(address) + " port " + std::to_string(port);
        changed.notify_all();
        return true;
    }

    std::string waitForQuestion() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_for(lock, std::chrono::seconds(10), [this] { return !asked.empty(); });
        return asked;
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    std::string asked;
};

class ConnectingEngine : public TestEngine {
  public:
    explicit ConnectingEngine(unsigned int optionFlags) : TestEngine(1, optionFlags) {
        auto* const newTransport = new ConnectRecorder;
        changeCommsInterface(newTransport);
        recorder = newTransport;
    }

    ConnectRecorder& connects() { return *recorder; }

    std::string bufferSizes() {
        std::string sizes;
        underConnectionLock([&]() {
            const CSClient::ConnectionOptions& options = PartAccess::connectionOptions(engineParts().connection);
            sizes = std::to_string(options.receiveBufferSize) + " " + std::to_string(options.sendBufferSize);
        });
        return sizes;
    }

  private:
    ConnectRecorder* recorder;
};

using ConnectingClient = ClientOf<ConnectingEngine>;

TEST(OpenForwarding, TheAddressInNetworkOrderAndThePortReachTheTransport) {
    ConnectingClient client;
    EXPECT_EQ(client.open(0x0302010AU, 55580, nullptr), 0);
    EXPECT_EQ(client.probed->connects().waitForQuestion(), "03 02 01 0A port 55580");
    EXPECT_EQ(client.getServerIPAddress(), "10.1.2.3");
    EXPECT_EQ(client.getServerPort(), 55580U);
}

TEST(OpenForwarding, ADottedAddressReachesTheTransportInNetworkOrder) {
    ConnectingClient client;
    EXPECT_EQ(client.open("10.1.2.3", 55580, nullptr), 0);
    EXPECT_EQ(client.probed->connects().waitForQuestion(), "03 02 01 0A port 55580");
    EXPECT_EQ(client.getServerIPAddress(), "10.1.2.3");
}

TEST(OpenForwarding, TextThatIsNoAddressIsPassedOnUnchecked) {
    ConnectingClient client;
    EXPECT_EQ(client.open("no address", 55580, nullptr), 0);
    EXPECT_EQ(client.probed->connects().waitForQuestion(), "FF FF FF FF port 55580");
    EXPECT_EQ(client.getServerIPAddress(), "255.255.255.255");
}

TEST(OpenForwarding, APortAboveSixteenBitsIsPassedOnWhole) {
    ConnectingClient client;
    client.open("10.1.2.3", 70000, nullptr);
    EXPECT_EQ(client.probed->connects().waitForQuestion(), "03 02 01 0A port 70000");
    EXPECT_EQ(client.getServerPort(), 70000U);
}

TEST(OpenForwarding, ConnectionOptionsAreCopied) {
    ConnectingClient client;
    CSClient::ConnectionOptions options;
    options.receiveBufferSize = 8192;
    options.sendBufferSize = 4096;
    EXPECT_EQ(client.open("10.1.2.3", 55580, &options), 0);
    EXPECT_EQ(client.probed->bufferSizes(), "8192 4096");
}

TEST(OpenForwarding, NoConnectionOptionsMeanBufferSizesOfZero) {
    ConnectingClient client;
    CSClient::ConnectionOptions options;
    options.receiveBufferSize = 8192;
    options.sendBufferSize = 4096;
    client.open("10.1.2.3", 55580, &options);
    ASSERT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(client.open("10.1.2.3", 55580, nullptr), 0);
    EXPECT_EQ(client.probed->bufferSizes(), "0 0");
}

TEST(OpenForwarding, ASecondOpenIsRefusedAndLeavesTheFirstAlone) {
    ConnectingClient client;
    client.open("10.1.2.3", 55580, nullptr);
    ASSERT_TRUE(client.waitForConnectionState(CSClient::STATE_READY, 5));
    EXPECT_EQ(client.open("10.9.9.9", 1, nullptr), 2);
    EXPECT_EQ(client.open(0x01010101U, 1, nullptr), 2);
    EXPECT_EQ(client.getServerIPAddress(), "10.1.2.3");
    EXPECT_EQ(client.getServerPort(), 55580U);
    EXPECT_EQ(client.getConnectionState(), CSClient::STATE_READY);
}

TEST(OpenForwarding, InEveryStateButDisconnectedOpenIsRefused) {
    for (const unsigned int state : {1U, 2U, 3U, 4U, 5U}) {
        ProbedClient client;
        client.pretendState(static_cast<CSClient::State>(state));
        EXPECT_EQ(client.open("10.1.2.3", 55580, nullptr), 2) << "in state " << state;
        EXPECT_EQ(client.getConnectionState(), state);
    }
}

TEST(OpenForwarding, AfterACloseTheAddressAndThePortAreGone) {
    ConnectingClient client;
    client.open("10.1.2.3", 55580, nullptr);
    ASSERT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(client.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(client.getServerPort(), 0U);
}

/// A subclass of an application that watches how it is opened and closed.
class WatchedClient : public ProbedClient {
  public:
    using CSClient::open;
    int open(unsigned int address, unsigned int port, const ConnectionOptions* options) override {
        seen = hexWord(address) + " port " + std::to_string(port) + (options == nullptr ? " no options" : " options");
        return 42;
    }
    State close() override {
        seen = "close";
        return STATE_RECONNECTING;
    }

    std::string seen;
};

TEST(OpenForwarding, TheDottedFormGoesThroughTheVirtualOne) {
    WatchedClient client;
    EXPECT_EQ(client.open("10.1.2.3", 70000, nullptr), 42);
    EXPECT_EQ(client.seen, "03 02 01 0A port 70000 no options");
    const CSClient::ConnectionOptions options;
    client.open("10.1.2.4", 1, &options);
    EXPECT_EQ(client.seen, "04 02 01 0A port 1 options");
}

TEST(OpenForwarding, OpenAndCloseCanBeReplacedBySubclasses) {
    WatchedClient client;
    CSClient& base = client;
    EXPECT_EQ(base.open(0x0302010AU, 1, nullptr), 42);
    EXPECT_EQ(base.close(), CSClient::STATE_RECONNECTING);
    EXPECT_EQ(client.seen, "close");
}

TEST(SendForwarding, AMessageGoesOutInAFrame) {
    ProbedClient client;
    client.pretendState(CSClient::STATE_READY);
    RawMessage message(RawMessage::CONTROL);
    message.write(0x01020304U);
    EXPECT_EQ(client.sendMessage(message), 0);
    EXPECT_EQ(client.probed->fakeTransport().written(),
              Lines{"00 00 00 24 00 00 00 20 00 00 00 03 00 00 00 02 "
                    "FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FE 01 02 03 04"});
}

TEST(SendForwarding, WithoutAConnectionTheResultIsOne) {
    ProbedClient client;
    EXPECT_EQ(client.sendMessage(RawMessage(RawMessage::DATA)), 1);
    EXPECT_EQ(client.probed->fakeTransport().written(), Lines{});
}

TEST(SendForwarding, AnInvalidMessageGivesThree) {
    ProbedClient client;
    client.pretendState(CSClient::STATE_READY);
    EXPECT_EQ(client.sendMessage(RawMessage(RawMessage::INVALID)), 3);
    EXPECT_EQ(client.probed->fakeTransport().written(), Lines{});
}

TEST(SendForwarding, AFailedWriteGivesTwoAndClosesTheConnection) {
    const CapturedStreams streams;
    ProbedClient client(0);
    client.pretendState(CSClient::STATE_READY);
    client.probed->fakeTransport().failWrites(-1, EPIPE);
    EXPECT_EQ(client.sendMessage(RawMessage(RawMessage::DATA)), 2);
    EXPECT_EQ(client.getConnectionState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(streams.err(), "Error writing to server (32) \n");
}

}  // namespace
}  // namespace com_tesk::test
