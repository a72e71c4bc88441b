#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/SimClient.h"
#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "tests/client/CountedSleeps.h"
#include "tests/client/Stopwatch.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"

namespace com_tesk::test {
namespace {

/// A client with the buffered transport whose worker pauses, for half a minute unless the pause is ended.
class BufferedPause : public testing::Test {
  protected:
    BufferedPause() {
        EXPECT_TRUE(client.changeCommsInterface(new CSCommsInterfaceTCPBuffered));
        client.addCallbackInterface(&heard);
    }

    void connect(const CSClient::ConnectionOptions* options = nullptr) {
        ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), options), 0);
        peer = host.accept();
        ASSERT_TRUE(peer);
        peer->receiveFrame();
    }

    /// Loses the connection, and has the next attempt refused.
    void lose() {
        host.stopListening();
        peer->reset();
    }

    /// Closes; the worker has ended by the first look after at most one second.
    void expectEndAtOnce() {
        const CountedSleeps sleeps([this](int) { EXPECT_TRUE(spinUntilState(client, CSClient::STATE_DISCONNECTED)); });
        EXPECT_EQ(client.close(), CSClient::STATE_DISCONNECTED);
        EXPECT_LE(sleeps.count(), 1);
    }

    ScriptedHost host;
    RecordingCallbacks heard;
    std::unique_ptr<ScriptedHost::Peer> peer;
    SimClient client{1, CSClient::OPTION_SILENT | CSClient::OPTION_AUTO_RECONNECT};
    const LongPauses pauses;
};

TEST_F(BufferedPause, AfterARefusedConnectIsEndedByClose) {
    host.stopListening();
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
    ASSERT_TRUE(LongPauses::waitForOne());
    expectEndAtOnce();
}

TEST_F(BufferedPause, AfterALossIsEndedByClose) {
    connect();
    ASSERT_TRUE(heard.waitFor("state 2->4"));
    lose();
    ASSERT_TRUE(heard.waitFor("state 5->1"));
    ASSERT_TRUE(LongPauses::waitForOne());
    expectEndAtOnce();
}

TEST_F(BufferedPause, DoesNotBeginWhenCloseComesRightAfterALoss) {
    connect();
    ASSERT_TRUE(heard.waitFor("state 2->4"));
    lose();
    ASSERT_TRUE(heard.waitFor("state 4->5"));
    expectEndAtOnce();
}

TEST_F(BufferedPause, AfterALossInAReregistrationIsEndedByClose) {
    std::vector<CSClient::OutputDef> outputs;
    for (int i = 0; i < 20'000; ++i) {
        outputs.push_back({"output " + std::to_string(i), CSClient::TYPE_FLOAT});
    }
    ASSERT_EQ(client.registerOutputParameters(outputs), 0);
    const CSClient::ConnectionOptions small{0, 4'096};
    connect(&small);
    ASSERT_EQ(peer->receive(32).size(), 32U) << "the re-registration has begun";
    lose();
    expectEndAtOnce();
}

TEST_F(BufferedPause, IsEndedByTheDestructor) {
    host.stopListening();
    auto other = std::make_unique<SimClient>(2, CSClient::OPTION_SILENT | CSClient::OPTION_AUTO_RECONNECT);
    ASSERT_TRUE(other->changeCommsInterface(new CSCommsInterfaceTCPBuffered));
    ASSERT_EQ(other->open(ScriptedHost::address(), host.port(), nullptr), 0);
    ASSERT_TRUE(LongPauses::waitForOne());
    const SimClient& destroyed = *other;
    const CountedSleeps sleeps(
        [&destroyed](int) { EXPECT_TRUE(spinUntilState(destroyed, CSClient::STATE_DISCONNECTED)); });
    other.reset();
    EXPECT_LE(sleeps.count(), 1);
}

TEST_F(BufferedPause, LastsItsTimeAgainAfterTheNextOpening) {
    host.stopListening();
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
    ASSERT_TRUE(LongPauses::waitForOne());
    expectEndAtOnce();
    const LongPauses countedAnew;
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
    ASSERT_TRUE(LongPauses::waitForOne());
    host.listenAgain();
    EXPECT_EQ(host.accept(std::chrono::milliseconds(300)), nullptr) << "an ended pause does not end the next";
    expectEndAtOnce();
}

}  // namespace
}  // namespace com_tesk::test
