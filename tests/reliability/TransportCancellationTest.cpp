// Cancels a thread at every cancellation point of every operation of a transport. Ends threads of the application with
// CSThread::kill while they wait inside an operation.

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>

#include "tests/reliability/CancellationFixture.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {
namespace {

/// A transport that is connected to a peer.
struct Pair {
    explicit Pair(CSCommsInterfaceTCP* newTransport) : transport(newTransport) {}

    void connect() {
        ASSERT_TRUE(transport->openConnection(ScriptedHost::address(), host.port()));
        peer = host.accept();
        ASSERT_TRUE(peer);
    }

    ScriptedHost host;
    std::unique_ptr<CSCommsInterfaceTCP> transport;
    std::unique_ptr<ScriptedHost::Peer> peer;
    RawMessage received{RawMessage::DATA};
};

struct TransportOperation {
    const char* name;
    void (*prepare)(Pair& pair);
    void (*call)(Pair& pair);
    /// What the peer does while the thread waits in its first `poll`.
    void (*duringPoll)(Pair& pair) = nullptr;
    ThreadScript::Writes writes = ThreadScript::Writes::WHOLE;

    // What a failed test prints.
    friend void PrintTo(const TransportOperation& printed, std::ostream* stream) { *stream << printed.name; }
};

void connect(Pair& pair) {
    pair.connect();
}

void open(Pair& pair) {
    pair.transport->openConnection(ScriptedHost::address(), pair.host.port());
}

void write(Pair& pair) {
    pair.transport->writeMessage(messageOf(hex("01 02 03 04 05 06 07 08")));
}

template <unsigned int Count>
void read(Pair& pair) {
    pair.transport->readMessage(Count, pair.received);
}

/// Connects; the peer sends so many bytes.
template <std::size_t Count>
void connectAndSend(Pair& pair) {
    pair.connect();
    pair.peer->send(Bytes(Count));
}

/// More than the buffered transport reads ahead.
constexpr unsigned int kLargeBody = 40'000;

const TransportOperation kTransportOperations[] = {
    {"Opening", [](Pair& /*pair*/) {}, open},
    {"OpeningAgain", connect, open},
    {"OpeningARefusingPort", [](Pair& pair) { pair.host.stopListening(); }, open},
    {"Closing", connect, [](Pair& pair) { pair.transport->close(); }},
    {"Interrupting", connect, [](Pair& pair) { pair.transport->setInterrupted(true); }},
    {"Destroying", connect, [](Pair& pair) { pair.transport.reset(); }},
    {"Reading", connectAndSend<2>, read<2>},
    {"ReadingNothing", connect, read<32>},
    {"ReadingWhileInterrupted",
     [](Pair& pair) {
         pair.connect();
         pair.transport->setInterrupted(true);
     },
     read<32>},
    {"ReadingAPart", connectAndSend<1>, read<2>, [](Pair& pair) { pair.peer->send("02"); }},
    {"ReadingPartOfALargeBody", connectAndSend<kLargeBody - 1>, read<kLargeBody>,
     [](Pair& pair) { pair.peer->send("02"); }},
    {"Writing", connect, write},
    {"WritingWhatFails", connect, write, nullptr, ThreadScript::Writes::FAILING},
    {"WritingInHalves", connect, write, nullptr, ThreadScript::Writes::HALVED},
    {"WritingInHalvesWhatIsAnswered", connect, write, [](Pair& pair) { pair.peer->send("01 02 03"); },
     ThreadScript::Writes::HALVED},
};

class TransportCancellation : public testing::TestWithParam<std::tuple<TransportOperation, TransportKind>> {
  protected:
    static const TransportOperation& operation() { return std::get<TransportOperation>(GetParam()); }
    static const TransportKind& kind() { return std::get<TransportKind>(GetParam()); }

    /// Expects that the transport opens, writes, reads and closes.
    static void expectUsable(Pair& pair) {
        pair.transport->setInterrupted(false);
        pair.peer.reset();
        // Connections that the test has not accepted may wait at the other host.
        ScriptedHost other;
        ASSERT_TRUE(pair.transport->openConnection(ScriptedHost::address(), other.port()));
        pair.peer = other.accept();
        ASSERT_TRUE(pair.peer);
        EXPECT_EQ(pair.transport->writeMessage(messageOf(hex("01 02 03"))), 3);
        EXPECT_EQ(hexText(pair.peer->receive(3)), "01 02 03");
        pair.peer->send("04 05");
        RawMessage message(RawMessage::DATA);
        int result = -2;
        ASSERT_TRUE(waitUntil([&] {
            message.clear();
            result = pair.transport->readMessage(2, message);
            return result != -2;
        }));
        EXPECT_EQ(result, 2);
        EXPECT_EQ(hexText(message), "04 05");
        EXPECT_EQ(pair.transport->close(), 0);
        EXPECT_TRUE(pair.peer->waitForEnd());
    }

    /// Returns whether the operation has that cancellation point.
    static bool cancelAt(int point) {
        Pair pair(kind().newTransport());
        operation().prepare(pair);
        ApplicationThread thread([&pair] { operation().call(pair); });
        thread.script.cancelAt = point;
        thread.script.writes = operation().writes;
        if (operation().duringPoll != nullptr) {
            thread.script.duringPoll = [&pair] { operation().duringPoll(pair); };
        }
        thread.run();
        SCOPED_TRACE(thread.text());
        if (kind().isBuffered && !thread.hasReturned() && thread.script.writeCalls > 0) {
            // Half a frame may have left, so nothing follows on that connection.
            EXPECT_EQ(pair.transport->writeMessage(messageOf(hex("FF FF"))), -1);
            EXPECT_LT(pair.peer->receive(8).size(), 8U);
        }
        if (pair.transport != nullptr) {
            expectUsable(pair);
        }
        return thread.script.points >= point;
    }

    const RedirectedStreams streams{
        [](const char* /*text*/, std::size_t /*size*/) { passCancellationPoint("stream"); }};
};

TEST_P(TransportCancellation, LeavesAWorkingTransport) {
    cancelAtEachPoint(&cancelAt);
}

INSTANTIATE_TEST_SUITE_P(In, TransportCancellation,
                         testing::Combine(testing::ValuesIn(kTransportOperations),
                                          testing::Values(kStandard, kBuffered)),
                         [](const auto& tested) {
                             return std::string(std::get<0>(tested.param).name) + std::get<1>(tested.param).name;
                         });

/// More than the buffers of both sides hold when the client's send buffer is small.
constexpr unsigned int kMoreThanFits = 8U << 20U;
constexpr std::uint32_t kSmallBuffer = 64U << 10U;

/// Bytes that do not repeat for long, with their number where a message has it.
Bytes largeBody() {
    Bytes body(kMoreThanFits);
    std::uint32_t number = 1;
    for (unsigned char& byte : body) {
        number = number * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(number >> 24U);
    }
    const Bytes length = hex(hexWord(kMoreThanFits));
    std::copy(length.begin(), length.end(), body.begin() + 4);
    return body;
}

/// Kills a thread in a write of more than fits.
/// @return what the peer receives until the stream ends.
std::future<Bytes> killInWrite(ScriptedHost::Peer& peer, const std::function<void()>& write) {
    ApplicationThread thread(write);
    thread.start();
    EXPECT_TRUE(waitUntil([&peer] { return !peer.isQuietFor(std::chrono::milliseconds(0)); }));
    thread.killAndWait();
    EXPECT_FALSE(thread.hasReturned());
    return std::async(std::launch::async, [&peer] { return peer.receive(std::size_t{2} * kMoreThanFits); });
}

/// Expects the beginning of `sent`: neither nothing nor the whole.
void expectBeginning(const Bytes& received, const Bytes& sent) {
    EXPECT_FALSE(received.empty());
    EXPECT_TRUE(received.size() < sent.size() && std::equal(received.begin(), received.end(), sent.begin()));
}

class KilledThread : public testing::TestWithParam<TransportKind> {
  protected:
    /// Kills a thread of the operation inside its first callback of a state change. The callback holds the lock of the
    /// connection.
    /// @param stateWhenClosing  the state that the connection keeps when it is requested to close meanwhile.
    void killInCallback(const std::function<void()>& operation, std::optional<CSClient::State> stateWhenClosing = {}) {
        std::atomic<bool> isInside{false};
        HookedCallbacks callbacks;
        std::atomic<bool> isArmed{false};
        callbacks.onStateChange = [&](auto, auto) {
            if (isArmed.exchange(false)) {
                isInside = true;
                for (;;) {
                    poll(nullptr, 0, 10);
                }
            }
        };
        fixture.client->addCallbackInterface(&callbacks);
        isArmed = true;
        ApplicationThread thread(operation);
        thread.start();
        ASSERT_TRUE(waitUntil([&isInside] { return isInside.load(); }));
        if (stateWhenClosing) {
            fixture.client->probed->forceCloseConnection();
            EXPECT_EQ(fixture.client->getConnectionState(), *stateWhenClosing) << "the change goes on";
        }
        thread.killAndWait();
        EXPECT_TRUE(fixture.client->waitForState(CSClient::STATE_DISCONNECTED)) << fixture.client->getConnectionState();
        fixture.client->removeCallbackInterface(&callbacks);
        fixture.expectNoLockIsHeld();
    }

    CancellationFixture fixture{GetParam(), CSClient::OPTION_AUTO_RECONNECT};
};

TEST_P(KilledThread, InThePauseAfterAFailedWriteLeavesAWorkingClient) {
    fixture.makeClient();
    fixture.connect();
    const int connections = fixture.connections();
    ApplicationThread thread([this] { fixture.client->publishParameter(intParameter("OUT", 0)); });
    thread.script.writes = ThreadScript::Writes::FAILING;
    thread.script.hasLongPauses = true;
    thread.start();
    ASSERT_TRUE(waitUntil([&thread] { return thread.script.isInPause.load(); }));
    thread.killAndWait();
    EXPECT_FALSE(thread.hasReturned());
    fixture.expectNoLockIsHeld();
    EXPECT_TRUE(waitUntil([&] { return fixture.connections() > connections; })) << "no new connection";
    fixture.expectToRegisterPublishAndReceive();
    fixture.expectToCloseAndOpenAgain();
}

TEST_P(KilledThread, InACallbackLeavesARequestToCloseToTheWorker) {
    fixture.makeClient();
    fixture.connect();
    killInCallback([this] { fixture.client->probed->closeConnection(); }, CSClient::STATE_RECONNECTING);
    fixture.expectToCloseAndOpenAgain();
}

TEST_P(KilledThread, InACallbackOfOpeningLeavesAClosedClient) {
    fixture.makeClient();
    killInCallback([this] { fixture.open(*fixture.client); }, CSClient::STATE_CONNECTING);
    EXPECT_EQ(fixture.open(*fixture.client), 0);
    fixture.expectToRegisterPublishAndReceive();
}

TEST_P(KilledThread, InACallbackOfClosingHasClosed) {
    fixture.makeClient();
    fixture.connect();
    killInCallback([this] { fixture.client->close(); });
    EXPECT_EQ(fixture.client->getServerPort(), 0U);
    fixture.expectToCloseAndOpenAgain();
}

TEST_P(KilledThread, InABlockedWriteLeavesNothingAfterHalfAFrame) {
    ScriptedHost host;
    OpenClient client(CSClient::OPTION_SILENT);
    ASSERT_TRUE(client.changeCommsInterface(GetParam().newTransport()));
    CSClient::ConnectionOptions small;
    small.sendBufferSize = kSmallBuffer;
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), &small), 0);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->receiveBody(), "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00");
    Bytes frame = hex(hexWord(kMoreThanFits + 32) + hexFrame("").substr(11));
    const Bytes body = largeBody();
    frame.insert(frame.end(), body.begin(), body.end());
    const RawMessage message = messageOf(body);
    std::future<Bytes> received = killInWrite(*peer, [&] { client.sendMessage(message); });
    // The send buffer has space again, whether the worker has ended the connection by now or not.
    EXPECT_NE(client.sendMessage(messageOf(hex("01 02 03"))), 0);
    EXPECT_EQ(client.registerOutputParameter({"OUT", CSClient::TYPE_INT}), 0);
    expectBeginning(received.get(), frame);
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_TRUE(client.waitForState(CSClient::STATE_DISCONNECTED));
}

INSTANTIATE_TEST_SUITE_P(Client, KilledThread, testing::Values(kStandard, kBuffered), nameOf<TransportKind>);

TEST(KilledThreadInABufferedWrite, EndsTheConnectionOfTheTransport) {
    CSCommsInterfaceTCP::Options small;
    small.sendBufferSize = kSmallBuffer;
    Pair pair(new CSCommsInterfaceTCPBuffered(small));
    pair.connect();
    const Bytes body = largeBody();
    const RawMessage message = messageOf(body);
    std::future<Bytes> received = killInWrite(*pair.peer, [&] { pair.transport->writeMessage(message); });
    EXPECT_EQ(pair.transport->writeMessage(messageOf(hex("01 02 03"))), -1);
    expectBeginning(received.get(), body);
    EXPECT_TRUE(pair.peer->waitForEnd());
    EXPECT_EQ(pair.transport->readMessage(1, pair.received), 0);
    pair.connect();
    EXPECT_EQ(pair.transport->writeMessage(messageOf(hex("01 02"))), 2);
    EXPECT_EQ(hexText(pair.peer->receive(2)), "01 02");
}

}  // namespace
}  // namespace com_tesk::test
