#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "host/LoopbackHost.h"
#include "tests/host/EventLog.h"
#include "tests/host/RawClient.h"

namespace com_tesk::host_test {
namespace {

using std::chrono::milliseconds;

class ClientFailures : public testing::Test {
  protected:
    LoopbackHost& start(HostOptions options = {}) {
        // Without the values, of which one test brings very many.
        options.eventSink = [record = log.sink()](const HostEvent& event) {
            if (!event.value) {
                record(event);
            }
        };
        startedHost = std::make_unique<LoopbackHost>(options);
        return *startedHost;
    }

    EventLog log;

  private:
    std::unique_ptr<LoopbackHost> startedHost;
};

TEST_F(ClientFailures, AClientThatClosesIsToldAndForgotten) {
    LoopbackHost& host = start();
    RawClient client(host.port());
    client.ask(subscribeFloat("A"));
    EXPECT_EQ(host.subscriberCount("A"), 1U);
    client.close();
    EXPECT_TRUE(host.waitForClients(0, kPatience));
    EXPECT_EQ(host.subscriberCount("A"), 0U);
    EXPECT_EQ(log.all().back(), "client 1 disconnected");
}

TEST_F(ClientFailures, AClientThatClosesInMidFrameIsToldSo) {
    LoopbackHost& host = start();
    RawClient client(host.port());
    client.send(hex("00000034"));
    client.close();
    EXPECT_TRUE(log.waitFor("client 1 disconnected: in the middle of a frame"));
}

TEST_F(ClientFailures, AClientThatResetsIsToldAndTheOthersAreServedOn) {
    LoopbackHost& host = start();
    RawClient other(host.port());
    ASSERT_TRUE(host.waitForClients(1, kPatience));
    RawClient client(host.port());
    client.ask(subscribeFloat("A"));
    client.reset();
    EXPECT_TRUE(log.waitFor("client 2 lost: Connection reset by peer"));
    EXPECT_TRUE(host.waitForSubscribers("A", 0, kPatience));
    EXPECT_EQ(other.ask(versionRequest()).size(), kVersionReplySize);
}

TEST_F(ClientFailures, WhatAClientSentBeforeItLeftUnreadAnswersBehindStillCounts) {
    const LoopbackHost& host = start();
    for (int round = 0; round < 20; ++round) {
        RawClient client(host.port());
        client.ask(registerInteger("A"));
        // Closing with an unread answer resets the connection, which meets the host while it
        // answers.
        client.send(joined({versionRequest(), versionRequest(), versionRequest()}));
        client.send(publish("00000001 00000001 0000000" + std::to_string(round % 10)));
        client.close();
        ASSERT_TRUE(host.waitForValue("A", HostValue::integer(round % 10), kPatience)) << round;
    }
}

TEST_F(ClientFailures, AClientThatStallsInMidFrameIsDroppedAndAnIdleOneIsNot) {
    HostOptions options;
    options.stallLimit = milliseconds(100);
    LoopbackHost& host = start(options);
    RawClient idle(host.port());
    idle.ask(versionRequest());
    RawClient stalling(host.port());
    stalling.send(hex("00000034 00000020 0000"));
    EXPECT_EQ(stalling.waitForEnd(), RawClient::End::CLOSED);
    EXPECT_TRUE(log.has("client 2 dropped: stalled in the middle of a frame for 100 ms"));
    EXPECT_EQ(host.clientCount(), 1U);
    EXPECT_EQ(idle.ask(versionRequest()).size(), kVersionReplySize);
}

TEST_F(ClientFailures, AClientThatStallsInTheBodyIsDropped) {
    HostOptions options;
    options.stallLimit = milliseconds(100);
    LoopbackHost& host = start(options);
    RawClient stalling(host.port());
    Bytes most = versionRequest();
    most.pop_back();
    stalling.send(most);
    EXPECT_EQ(stalling.waitForEnd(), RawClient::End::CLOSED);
    EXPECT_TRUE(log.has("client 1 dropped: stalled"));
}

TEST_F(ClientFailures, AFrameThatWasCompletedInTimeIsNoStall) {
    HostOptions options;
    options.stallLimit = milliseconds(300);
    LoopbackHost& host = start(options);
    RawClient slow(host.port());
    const Bytes request = versionRequest();
    slow.send(Bytes(request.begin(), request.begin() + 10));
    // A second client's round shows that the host has read the first ten bytes.
    RawClient other(host.port());
    other.ask(versionRequest());
    EXPECT_EQ(slow.ask(Bytes(request.begin() + 10, request.end())).size(), kVersionReplySize);
    // Another client's stall shows that the time is over.
    other.send(hex("00"));
    EXPECT_EQ(other.waitForEnd(), RawClient::End::CLOSED);
    EXPECT_EQ(slow.ask(versionRequest()).size(), kVersionReplySize);
}

TEST_F(ClientFailures, AClientThatDoesNotReadIsDroppedAtTheBoundAndTheOthersAreServed) {
    HostOptions options;
    options.maxQueuedBytes = 64 * 1024;
    LoopbackHost& host = start(options);
    RawClient publisher(host.port());
    publisher.ask(registerFloat("MANY"));
    publisher.ask(registerFloat("ONE"));
    RawClient reader(host.port());
    reader.ask(subscribeFloat("ONE"));
    RawClient stuck(host.port(), "127.0.0.1", 4096);
    stuck.ask(subscribeFloat("MANY"));

    // Each round is 12 kB for the client that does not read, and one record for the one that does.
    Bytes values = hex("00050000 00000000 000003E9");
    for (int i = 0; i < 1000; ++i) {
        const Bytes record = hex("00000001 00000000 3F800000");
        values.insert(values.end(), record.begin(), record.end());
    }
    const Bytes last = hex("00000002 00000000 3F800000");
    values.insert(values.end(), last.begin(), last.end());
    const Bytes round = request(0x03, values);
    constexpr int kMoreThanTheSystemBuffers = 5000;
    int rounds = 0;
    while (!log.has("client 3 dropped") && rounds < kMoreThanTheSystemBuffers) {
        ASSERT_TRUE(publisher.send(round));
        ASSERT_EQ(reader.receiveFrame(), update("00000001 00000000 3F800000"));
        ++rounds;
    }
    EXPECT_TRUE(log.has("client 3 dropped: does not read: ")) << rounds;
    EXPECT_TRUE(log.has(" bytes wait for it, 12056 more do not fit"));
    EXPECT_TRUE(host.waitForClients(2, kPatience));
    EXPECT_NE(stuck.waitForEnd(), RawClient::End::STILL_OPEN);
    EXPECT_EQ(publisher.ask(versionRequest()).size(), kVersionReplySize);
}

TEST_F(ClientFailures, AnAnswerAboveTheBoundIsGivenToAClientThatReads) {
    HostOptions options;
    options.maxQueuedBytes = 100;
    LoopbackHost& host = start(options);
    RawClient client(host.port());
    EXPECT_EQ(client.ask(versionRequest()).size(), kVersionReplySize);
    EXPECT_EQ(client.ask(versionRequest()).size(), kVersionReplySize);
}

}  // namespace
}  // namespace com_tesk::host_test
