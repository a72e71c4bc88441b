// Waiting for a state while a change of state is under way: the wait only polls.

#include <gtest/gtest.h>

#include <future>
#include <memory>

#include "client/SimClient.h"
#include "tests/client/CountedSleeps.h"
#include "tests/client/Stopwatch.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;

/// What an operation that does not block may take on a busy machine.
constexpr double kSoon = 0.9;

constexpr const char* kVersionRequest = "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00";

std::string outputRegistration(const std::string& name) {
    return "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 " + hexField(name);
}

/// Holds up the change to one state in its callback until the test lets it go on.
class HoldingCallbacks : public RecordingCallbacks {
  public:
    explicit HoldingCallbacks(CSClient::State heldState) : held(heldState) {}

    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        RecordingCallbacks::connectionStateChanged(oldState, newState);
        if (newState == held) {
            released.wait_for(kBound);
        }
    }

    void release() {
        if (!isReleased) {
            isReleased = true;
            releasing.set_value();
        }
    }

  private:
    const CSClient::State held;
    bool isReleased = false;
    std::promise<void> releasing;
    std::shared_future<void> released = releasing.get_future().share();
};

/// A client one of whose changes of state is held up in its callback.
class ReadyWait : public testing::Test {
  protected:
    ~ReadyWait() override {
        if (heard) {
            heard->release();
        }
        if (opening.valid()) {
            EXPECT_EQ(opening.get(), 0);
        }
    }

    /// Returns when the callback of the change `from` to `to` is reached.
    void holdAt(CSClient::State from, CSClient::State to) {
        heard = std::make_unique<HoldingCallbacks>(to);
        client = std::make_unique<SimClient>(1, CSClient::OPTION_SILENT | CSClient::OPTION_AUTO_RECONNECT);
        useTransportUnderTest(*client);
        client->addCallbackInterface(heard.get());
        // On another thread: that makes the first change itself.
        opening = std::async(std::launch::async,
                             [this] { return client->open(ScriptedHost::address(), host.port(), nullptr); });
        if (from != CSClient::STATE_DISCONNECTED) {
            peer = host.accept();
            ASSERT_TRUE(peer);
        }
        if (from == CSClient::STATE_READY) {
            ASSERT_TRUE(heard->waitFor("state 2->4"));
            peer->reset();
        }
        ASSERT_TRUE(heard->waitFor("state " + std::to_string(from) + "->" + std::to_string(to)));
    }

    ScriptedHost host;
    std::unique_ptr<ScriptedHost::Peer> peer;
    std::unique_ptr<HoldingCallbacks> heard;
    /// Destroyed before the callbacks, which it calls.
    std::unique_ptr<SimClient> client;
    std::future<int> opening;
};

struct Change {
    CSClient::State from;
    CSClient::State to;
};

class HeldChange : public ReadyWait, public testing::WithParamInterface<Change> {
  protected:
    void SetUp() override { holdAt(GetParam().from, GetParam().to); }
};

INSTANTIATE_TEST_SUITE_P(To, HeldChange,
                         testing::Values(Change{CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING},
                                         Change{CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED},
                                         Change{CSClient::STATE_CONNECTED, CSClient::STATE_READY},
                                         Change{CSClient::STATE_READY, CSClient::STATE_RECONNECTING}),
                         [](const testing::TestParamInfo<Change>& change) { return std::to_string(change.param.to); });

TEST_P(HeldChange, IsSeenAtOnceByZeroSeconds) {
    const CountedSleeps sleeps;
    const Stopwatch watch;
    EXPECT_TRUE(client->waitForConnectionState(GetParam().to, 0));
    EXPECT_LT(watch.seconds(), kSoon);
    EXPECT_EQ(sleeps.count(), 0);
}

TEST_P(HeldChange, IsSeenAtOnceByFourSeconds) {
    const CountedSleeps sleeps;
    const Stopwatch watch;
    EXPECT_TRUE(client->waitForConnectionState(GetParam().to, 4));
    EXPECT_LT(watch.seconds(), kSoon);
    EXPECT_EQ(sleeps.count(), 0);
}

TEST_P(HeldChange, DoesNotHoldUpThePollForAnotherState) {
    const CountedSleeps sleeps;
    const Stopwatch watch;
    EXPECT_FALSE(client->waitForConnectionState(CSClient::STATE_DISCONNECTING, 0));
    EXPECT_EQ(sleeps.count(), 0);
    EXPECT_FALSE(client->waitForConnectionState(CSClient::STATE_DISCONNECTING, 3));
    EXPECT_EQ(sleeps.count(), 3);
    EXPECT_LT(watch.seconds(), kSoon);
}

TEST_F(ReadyWait, SeesReadyAtTheFirstPollAfterTheChangeToIt) {
    holdAt(CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED);
    const CountedSleeps sleeps([this](int sleep) {
        if (sleep == 2) {
            heard->release();
            EXPECT_TRUE(heard->waitFor("state 2->4"));
        }
    });
    EXPECT_TRUE(client->waitForConnectionState(CSClient::STATE_READY, 5));
    EXPECT_EQ(sleeps.count(), 2);
}

TEST_F(ReadyWait, IsFollowedByRegistrationsThatReachTheHostOnce) {
    holdAt(CSClient::STATE_CONNECTED, CSClient::STATE_READY);
    ASSERT_TRUE(client->waitForConnectionState(CSClient::STATE_READY, 0));
    EXPECT_EQ(client->registerOutputParameter({"A", CSClient::TYPE_FLOAT}), 0);
    heard->release();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), outputRegistration("A"));
    EXPECT_TRUE(peer->isQuietFor(milliseconds(100)));
}

TEST_F(ReadyWait, ForConnectedIsFollowedByRegistrationsSentOnce) {
    holdAt(CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED);
    ASSERT_TRUE(client->waitForConnectionState(CSClient::STATE_CONNECTED, 0));
    EXPECT_EQ(client->registerOutputParameter({"A", CSClient::TYPE_FLOAT}), 0);
    heard->release();
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), outputRegistration("A"));
    EXPECT_TRUE(peer->isQuietFor(milliseconds(100)));
}

/// Asks for the state from inside the change to it.
class PollingCallbacks : public RecordingCallbacks {
  public:
    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        if (newState == CSClient::STATE_READY) {
            record(client->waitForConnectionState(CSClient::STATE_READY, 0) ? "seen inside" : "not seen inside");
        }
        RecordingCallbacks::connectionStateChanged(oldState, newState);
    }

    CSClient* client = nullptr;
};

TEST(ReadyWaitInside, TheCallbackOfTheChangeEndsAtOnce) {
    ScriptedHost host;
    PollingCallbacks heard;
    SimClient client(1, CSClient::OPTION_SILENT);
    useTransportUnderTest(client);
    heard.client = &client;
    client.addCallbackInterface(&heard);
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
    EXPECT_TRUE(heard.waitFor("state 2->4"));
    EXPECT_TRUE(heard.waitFor("seen inside"));
}

}  // namespace
}  // namespace com_tesk::test
