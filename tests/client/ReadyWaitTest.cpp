#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "client/SimClient.h"
#include "tests/support/RecordingCallbacks.h"
#include "tests/support/ScriptedHost.h"
#include "tests/support/TransportUnderTest.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;

constexpr const char* kVersionRequest = "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00";

std::string outputRegistration(const std::string& name) {
    return "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 00 " + hexField(name);
}

/// Holds up the change to `STATE_READY` in its callback until the test lets it go on.
class HoldingCallbacks : public RecordingCallbacks {
  public:
    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        RecordingCallbacks::connectionStateChanged(oldState, newState);
        if (newState == CSClient::STATE_READY) {
            released.wait();
        }
    }

    std::promise<void> release;

  private:
    std::shared_future<void> released = release.get_future().share();
};

TEST(ReadyWait, EndsWhenTheChangeIsCompleteAndNotBefore) {
    ScriptedHost host;
    HoldingCallbacks heard;
    SimClient client(1, CSClient::OPTION_SILENT);
    useTransportUnderTest(client);
    client.addCallbackInterface(&heard);
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
    ASSERT_TRUE(heard.waitFor("state 2->4"));

    auto seen =
        std::async(std::launch::async, [&client] { return client.waitForConnectionState(CSClient::STATE_READY, 0); });
    EXPECT_EQ(seen.wait_for(milliseconds(100)), std::future_status::timeout);
    heard.release.set_value();
    EXPECT_TRUE(seen.get());
}

TEST(ReadyWait, EndsAfterItsSecondsAlsoWhenTheChangeDoesNot) {
    ScriptedHost host;
    HoldingCallbacks heard;
    SimClient client(1, CSClient::OPTION_SILENT);
    client.addCallbackInterface(&heard);
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
    ASSERT_TRUE(heard.waitFor("state 2->4"));

    auto seen =
        std::async(std::launch::async, [&client] { return client.waitForConnectionState(CSClient::STATE_READY, 1); });
    // A second for the look, and one for the last look, which then tells what it has seen.
    EXPECT_EQ(seen.wait_for(milliseconds(1'900)), std::future_status::timeout);
    EXPECT_EQ(seen.wait_for(milliseconds(5'000)), std::future_status::ready);
    heard.release.set_value();
    EXPECT_TRUE(seen.get());
}

TEST(ReadyWait, WhatIsRegisteredAfterItReachesTheHostOnceAndBehindTheVersionRequest) {
    ScriptedHost host;
    HoldingCallbacks heard;
    SimClient client(1, CSClient::OPTION_SILENT);
    useTransportUnderTest(client);
    client.addCallbackInterface(&heard);
    ASSERT_EQ(client.open(ScriptedHost::address(), host.port(), nullptr), 0);
    const auto peer = host.accept();
    ASSERT_TRUE(peer);
    ASSERT_TRUE(heard.waitFor("state 2->4"));

    auto registered = std::async(std::launch::async, [&client] {
        return client.waitForConnectionState(CSClient::STATE_READY, 0)
                   ? client.registerOutputParameter({"A", CSClient::TYPE_FLOAT})
                   : -1;
    });
    EXPECT_EQ(registered.wait_for(milliseconds(100)), std::future_status::timeout);
    heard.release.set_value();
    EXPECT_EQ(registered.get(), 0);
    EXPECT_EQ(peer->receiveBody(), kVersionRequest);
    EXPECT_EQ(peer->receiveBody(), outputRegistration("A"));
    EXPECT_TRUE(peer->isQuietFor(milliseconds(100)));
}

/// Asks for the state from inside the change to it.
class AskingCallbacks : public RecordingCallbacks {
  public:
    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        if (newState == CSClient::STATE_READY) {
            record(client->waitForConnectionState(CSClient::STATE_READY, 0) ? "seen inside" : "not seen inside");
        }
        RecordingCallbacks::connectionStateChanged(oldState, newState);
    }

    CSClient* client = nullptr;
};

TEST(ReadyWait, InsideTheCallbackOfTheChangeEndsAtOnce) {
    ScriptedHost host;
    AskingCallbacks heard;
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
