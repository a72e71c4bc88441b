#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {
namespace {

/// A sender whose write on the first connection hangs until the test lets it fail, long after that connection is gone.
class StaleFailure : public testing::Test {
  protected:
    void prepare(unsigned int optionFlags) {
        engine = std::make_unique<ConnectionEngine>(optionFlags);
        engine->connect();
        engine->addCallbackInterface(&callbacks);
        engine->probe().onWrite = [this] {
            if (std::this_thread::get_id() == sender) {
                inWrite.open();
                goOn.wait();
                // Other threads' writes are over by now, so this failure can only be the sender's.
                engine->probe().failWrites(-1, EPIPE);
            }
        };
    }

    template <typename Send>
    auto startSending(const Send& send) {
        auto sending = std::async(std::launch::async, [this, send] {
            sender = std::this_thread::get_id();
            return send(*engine);
        });
        EXPECT_TRUE(inWrite.wait());
        return sending;
    }

    CapturedStreams captured;
    RecordingCallbacks callbacks;
    Latch inWrite;
    Latch goOn;
    std::atomic<std::thread::id> sender;
    std::unique_ptr<ConnectionEngine> engine;
};

TEST_F(StaleFailure, DoesNotCloseANewerConnection) {
    prepare(kReconnect | kSilent);
    auto sending =
        startSending([](ConnectionEngine& used) { return used.sendMessage(messageOf(RawMessage::CONTROL, "01")); });
    engine->closeConnection();
    EXPECT_EQ(engine->startConnection(), 0);
    goOn.open();
    EXPECT_EQ(sending.get(), 2U);
    EXPECT_EQ(callbacks.states(), "4->5 5->1 1->2 2->4");
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    EXPECT_EQ(engine->sendMessage(messageOf(RawMessage::CONTROL, "02")), 0U);
}

TEST_F(StaleFailure, UnderTheLockOfTheParametersDoesNotCloseANewerConnection) {
    prepare(kReconnect | kSilent);
    auto sending = startSending([](ConnectionEngine& used) {
        const CSClient::OutputDef output{"O", CSClient::TYPE_INT};
        return used.registerOutputParameters(&output, 1);
    });
    const std::size_t before = engine->probe().written().size();
    engine->closeConnection();
    // The new connection's first request is written; then it waits for the sender to let go of the parameters.
    auto connecting = std::async(std::launch::async, [this] { return engine->startConnection(); });
    ASSERT_TRUE(waitUntil([&] { return engine->probe().written().size() == before + 1; }));
    goOn.open();
    EXPECT_EQ(sending.get(), 2);
    EXPECT_EQ(connecting.get(), 0);
    EXPECT_EQ(callbacks.states(), "4->5 5->1 1->2 2->4");
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
}

TEST_F(StaleFailure, DoesNotForceANewerConnectionClosedWithoutReconnect) {
    prepare(kSilent);
    auto sending =
        startSending([](ConnectionEngine& used) { return used.sendMessage(messageOf(RawMessage::CONTROL, "01")); });
    engine->closeConnection();
    engine->changeState(CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(engine->connect(), 0);
    goOn.open();
    EXPECT_EQ(sending.get(), 2U);
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
}

TEST_F(StaleFailure, IsReportedAllTheSame) {
    prepare(kReconnect);
    auto sending =
        startSending([](ConnectionEngine& used) { return used.sendMessage(messageOf(RawMessage::CONTROL, "01")); });
    engine->closeConnection();
    EXPECT_EQ(engine->startConnection(), 0);
    goOn.open();
    EXPECT_EQ(sending.get(), 2U);
    EXPECT_EQ(captured.err(), kBrokenPipeLine);
    EXPECT_EQ(captured.out(), "Attempting to reconnect...\n");
}

TEST_F(StaleFailure, ChangesNothingWhenTheConnectionIsGone) {
    prepare(kSilent);
    auto sending =
        startSending([](ConnectionEngine& used) { return used.sendMessage(messageOf(RawMessage::CONTROL, "01")); });
    engine->forceCloseConnection();
    engine->changeState(CSClient::STATE_DISCONNECTED);
    goOn.open();
    EXPECT_EQ(sending.get(), 2U);
    EXPECT_EQ(callbacks.states(), "4->3 3->0");
    EXPECT_EQ(engine->getState(), CSClient::STATE_DISCONNECTED);
}

/// A real transport in which one thread's write lies between two connections: it begins when the first is lost, and
/// when it has failed its thread gets no processor until the second stands.
class TransportBetweenConnections : public CSCommsInterfaceTCP {
  public:
    TransportBetweenConnections() : CSCommsInterfaceTCP(Options()) {}

    int writeMessage(const RawMessage& message) override {
        const bool isSlow = std::this_thread::get_id() == sender;
        if (isSlow) {
            inWrite.open();
            lost.wait();
        }
        const int result = CSCommsInterfaceTCP::writeMessage(message);
        const int error = errno;
        if (isSlow) {
            connectedAgain.wait();
        }
        errno = error;
        return result;
    }

    std::atomic<std::thread::id> sender;
    Latch inWrite;
    Latch lost;
    Latch connectedAgain;
};

TEST(StaleFailureOverASocket, DoesNotCloseANewerConnection) {
    const CapturedStreams captured;
    RecordingCallbacks callbacks;
    ScriptedHost host;
    ConnectionEngine engine(kReconnect | kSilent);
    EndOnExit end(engine);
    auto* const between = new TransportBetweenConnections;
    ASSERT_TRUE(engine.changeCommsInterface(between));
    engine.addCallbackInterface(&callbacks);
    ASSERT_EQ(engine.openConnection(ScriptedHost::address(), host.port(), nullptr), 0);
    const std::unique_ptr<ScriptedHost::Peer> first = host.accept();
    ASSERT_TRUE(first);
    ASSERT_TRUE(callbacks.waitFor("state 2->4"));
    auto sending = std::async(std::launch::async, [&] {
        between->sender = std::this_thread::get_id();
        return engine.sendMessage(messageOf(RawMessage::CONTROL, "01"));
    });
    EXPECT_TRUE(between->inWrite.wait());
    first->reset();
    EXPECT_TRUE(callbacks.waitFor("state 5->1"));
    between->lost.open();
    const std::unique_ptr<ScriptedHost::Peer> second = host.accept();
    EXPECT_TRUE(callbacks.waitFor("state 2->4", 2));
    between->connectedAgain.open();
    EXPECT_EQ(sending.get(), 2U);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->receiveFrame(), versionRequestFrame());
    EXPECT_TRUE(second->isQuietFor(std::chrono::milliseconds(200)));
    EXPECT_EQ(callbacks.states(), "0->1 1->2 2->4 4->5 5->1 1->2 2->4");
}

}  // namespace
}  // namespace com_tesk::test
