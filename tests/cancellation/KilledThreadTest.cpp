// An application ends a thread of its own, with CSThread::kill, while that thread waits inside an operation.

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/cancellation/Scene.h"
#include "tests/comms/BufferedPair.h"
#include "tests/comms/TaskStatus.h"
#include "tests/message/MessageOf.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kReconnects = CSClient::OPTION_AUTO_RECONNECT;

/// More than both sides' buffers hold when the client's send buffer is small.
constexpr std::size_t kMoreThanFits = 8U << 20U;
constexpr std::uint32_t kSmallBuffer = 64U << 10U;

struct Kind {
    bool isBuffered;

    // What a failed test prints.
    friend void PrintTo(const Kind& kind, std::ostream* stream) {
        *stream << (kind.isBuffered ? "Buffered" : "Standard");
    }
};

class KilledThread : public testing::TestWithParam<Kind> {};

std::string kindName(const testing::TestParamInfo<Kind>& info) {
    return info.param.isBuffered ? "Buffered" : "Standard";
}

TEST_P(KilledThread, InThePauseAfterAFailedWriteLeavesAWorkingClient) {
    Scene scene(GetParam().isBuffered, kReconnects);
    scene.makeClient();
    scene.connect();
    const std::size_t connections = scene.connections();
    CSClient::Parameter value{"OUT", {}, CSClient::TYPE_INT, 0};
    ApplicationThread thread([&] { scene.client->publishParameter(value); });
    thread.script.writes = ThreadScript::Writes::FAILING;
    thread.script.hasLongPauses = true;
    thread.start();
    ASSERT_TRUE(waitUntil([&thread] { return thread.script.isInPause.load(); }));
    thread.kill();
    thread.wait();
    EXPECT_FALSE(thread.hasReturned());
    scene.expectNothingIsLeftBehind();
    EXPECT_TRUE(waitUntil([&] { return scene.connections() > connections; })) << "no new connection";
    scene.expectToRegisterPublishAndReceive();
    scene.expectToCloseAndOpenAgain();
}

/// Patterned bytes that do not fit, with their number where a frame has it.
Bytes largeBody() {
    Bytes body = patternedBytes(kMoreThanFits);
    const unsigned char length[] = {0x00, 0x80, 0x00, 0x00};
    std::copy(std::begin(length), std::end(length), body.begin() + 4);
    return body;
}

/// Whether `received` is the beginning of `sent`: neither nothing nor the whole.
bool isBeginning(const Bytes& received, const Bytes& sent) {
    return !received.empty() && received.size() < sent.size() &&
           std::equal(received.begin(), received.end(), sent.begin());
}

/// Begins to receive what comes until the stream ends.
std::future<Bytes> receiveAll(ScriptedHost::Peer& peer) {
    return std::async(std::launch::async, [&peer] { return peer.receive(2 * kMoreThanFits); });
}

/// Runs an operation that writes more than fits, and kills the thread as soon as it is stuck.
void killWhenStuck(const std::function<void()>& write) {
    std::atomic<pid_t> task{0};
    ApplicationThread thread([&] {
        task = thisTask();
        write();
    });
    thread.start();
    ASSERT_TRUE(waitUntil([&] { return thread.script.writeCalls > 0 && isAsleep(task); }));
    thread.kill();
    thread.wait();
    EXPECT_FALSE(thread.hasReturned());
}

TEST_P(KilledThread, InAWriteThatIsStuckLeavesNothingAfterHalfAFrame) {
    ScriptedHost host;
    OpenClient client(CSClient::OPTION_SILENT);
    ASSERT_TRUE(client.changeCommsInterface(newTransport(GetParam().isBuffered)));
    CSClient::ConnectionOptions small;
    small.sendBufferSize = kSmallBuffer;
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), &small), 0);
    const std::unique_ptr<ScriptedHost::Peer> peer = host.accept();
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->receiveFrame(), versionRequestFrame());
    const RawMessage message = messageOfBytes(largeBody());
    killWhenStuck([&] { client.sendMessage(message); });
    // There is room again, whether the worker has ended the connection by now or not.
    std::future<Bytes> receiving = receiveAll(*peer);
    EXPECT_NE(client.sendMessage(messageOf("01 02 03")), 0);
    EXPECT_EQ(client.registerOutputParameter({"OUT", CSClient::TYPE_INT}), 0);
    EXPECT_TRUE(isBeginning(receiving.get(), frameOf(largeBody())));
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_TRUE(waitForState(client.engineInside(), CSClient::STATE_DISCONNECTED));
}

TEST(KilledThreadInABufferedWrite, EndsTheConnectionOfTheTransport) {
    CSCommsInterfaceTCP::Options small;
    small.sendBufferSize = kSmallBuffer;
    BufferedPair pair(CSCommsInterfaceTCPBuffered::Bounds(), small);
    const RawMessage message = messageOfBytes(largeBody());
    killWhenStuck([&] { pair.transport.writeMessage(message); });
    std::future<Bytes> receiving = receiveAll(*pair.peer);
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01 02 03")), -1);
    EXPECT_TRUE(isBeginning(receiving.get(), largeBody()));
    EXPECT_TRUE(pair.peer->waitForEnd());
    EXPECT_EQ(readOnce(pair.transport, 1).result, 0);
    pair.connect();
    EXPECT_EQ(pair.transport.writeMessage(messageOf("01 02")), 2);
    EXPECT_EQ(hexText(pair.peer->receive(2)), "01 02");
}

/// Holds the lock of the connection: stays in the first change of state, once it is told to.
class HoldingCallbacks : public CSClient::CallbackIface {
  public:
    void connectionStateChanged(CSClient::State /*old*/, CSClient::State /*now*/) override {
        if (isArmed.exchange(false)) {
            isInside.open();
            for (;;) {
                poll(nullptr, 0, 10);
            }
        }
    }
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& /*parameters*/) override {}
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& /*outputs*/) override {}
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& /*inputs*/) override {}

    std::atomic<bool> isArmed{false};
    Latch isInside;
};

TEST_P(KilledThread, InACallbackLeavesARequestToCloseToTheWorker) {
    HoldingCallbacks holding;
    Scene scene(GetParam().isBuffered, kReconnects);
    scene.makeClient();
    scene.client->addCallbackInterface(&holding);
    scene.connect();
    ApplicationThread thread([&] { scene.client->engineInside().closeConnection(); });
    holding.isArmed = true;
    thread.start();
    ASSERT_TRUE(holding.isInside.wait());
    scene.client->engineInside().forceCloseConnection();
    EXPECT_EQ(scene.client->getConnectionState(), CSClient::STATE_RECONNECTING) << "the change goes on";
    thread.kill();
    thread.wait();
    EXPECT_TRUE(scene.waitForState(CSClient::STATE_DISCONNECTED)) << scene.client->getConnectionState();
    scene.expectNothingIsLeftBehind();
    scene.expectToCloseAndOpenAgain();
}

TEST_P(KilledThread, InACallbackOfOpeningLeavesAClosedClient) {
    HoldingCallbacks holding;
    Scene scene(GetParam().isBuffered, kReconnects);
    scene.makeClient();
    scene.client->addCallbackInterface(&holding);
    ApplicationThread thread([&] { scene.open(); });
    holding.isArmed = true;
    thread.start();
    ASSERT_TRUE(holding.isInside.wait());
    scene.client->engineInside().forceCloseConnection();
    EXPECT_EQ(scene.client->getConnectionState(), CSClient::STATE_CONNECTING) << "the change goes on";
    thread.kill();
    thread.wait();
    EXPECT_TRUE(scene.waitForState(CSClient::STATE_DISCONNECTED)) << scene.client->getConnectionState();
    scene.expectNothingIsLeftBehind();
    EXPECT_EQ(scene.open(), 0);
    scene.expectToRegisterPublishAndReceive();
}

TEST_P(KilledThread, InACallbackOfClosingHasClosed) {
    HoldingCallbacks holding;
    Scene scene(GetParam().isBuffered, kReconnects);
    scene.makeClient();
    scene.client->addCallbackInterface(&holding);
    scene.connect();
    ApplicationThread thread([&] { scene.client->close(); });
    holding.isArmed = true;
    thread.start();
    ASSERT_TRUE(holding.isInside.wait());
    thread.kill();
    thread.wait();
    EXPECT_TRUE(scene.waitForState(CSClient::STATE_DISCONNECTED)) << scene.client->getConnectionState();
    EXPECT_EQ(scene.client->getServerPort(), 0U);
    scene.expectNothingIsLeftBehind();
    scene.expectToCloseAndOpenAgain();
}

INSTANTIATE_TEST_SUITE_P(Of, KilledThread, testing::Values(Kind{false}, Kind{true}), kindName);

}  // namespace
}  // namespace com_tesk::test
