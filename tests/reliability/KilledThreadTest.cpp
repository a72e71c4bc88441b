// An application ends a thread of its own, with CSThread::kill, while that thread waits inside an operation.

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "tests/reliability/CancellationFixture.h"

namespace com_tesk::test {
namespace {

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
    TransportPair pair(new CSCommsInterfaceTCPBuffered(small));
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
