// Faults that change, delay or take away messages, seen at the wire.

#include "tests/scenario/FaultyHost.h"

namespace com_tesk::scenario_test {
namespace {

using MessageFaults = FaultyHostTest;

const std::string kOne = "3F800000";
const std::string kTwo = "40000000";
const std::string kThree = "40400000";

TEST_F(MessageFaults, WithoutFaultsEverythingPasses) {
    play([](Scenario&) {});
    Client client = connect();
    EXPECT_TRUE(isServed(client));
    subscribeFirst(client);
    EXPECT_EQ(nextAfterSetting(client, 1), updateOfFirst(kOne));
}

TEST_F(MessageFaults, AWithheldMessageIsMissing) {
    playFault(sending(Message::UPDATE).nthTime(2), Withhold{});
    Client client = connect();
    subscribeFirst(client);
    EXPECT_EQ(nextAfterSetting(client, 1), updateOfFirst(kOne));
    host().setValue("A", HostValue::real(2));
    EXPECT_EQ(nextAfterSetting(client, 3), updateOfFirst(kThree));
}

TEST_F(MessageFaults, AWithheldNameIsMissingFromItsMessage) {
    playFault(sending(Message::INPUTS_CONFIRMED).of("B"), Withhold{});
    Client client = connect();
    const std::string both = request("01", "00050000 00000002 00002EE0 00002EE0 00000000" + hexField("A") +
                                               "00002EE0 00002EE0 00000000" + hexField("B"));
    EXPECT_EQ(client.ask(both), hexText(hex(inputReply("00000001", "00000000 00000000", "A"))));
}

TEST_F(MessageFaults, ARequestThatIsWithheldIsNotServed) {
    playFault(receiving(Message::REGISTER_INPUTS).nthTime(1), Withhold{});
    Client client = connect();
    client.send(subscribe("A"));
    EXPECT_EQ(client.ask(subscribe("B")), hexText(hex(inputReply("00000001", "00000000 00000000", "B"))));
}

TEST_F(MessageFaults, ADelayedMessageKeepsTheOrder) {
    playFault(sending(Message::UPDATE).nthTime(1), Delay{300ms});
    Client client = connect();
    subscribeFirst(client);
    const test::Stopwatch delayed;
    EXPECT_EQ(nextAfterSetting(client, 1), updateOfFirst(kOne));
    EXPECT_GE(delayed.seconds(), 0.29);
    host().setValue("A", HostValue::real(2));
    EXPECT_EQ(client.receiveFrame(), updateOfFirst(kTwo));
}

TEST_F(MessageFaults, WhatComesAfterADelayedMessageWaitsToo) {
    playFault(sending(Message::UPDATE).nthTime(1), Delay{300ms});
    Client client = connect();
    subscribeFirst(client);
    const test::Stopwatch delayed;
    host().setValue("A", HostValue::real(1));
    host().setValue("A", HostValue::real(2));
    EXPECT_EQ(client.receiveFrame(), updateOfFirst(kOne));
    EXPECT_EQ(client.receiveFrame(), updateOfFirst(kTwo));
    EXPECT_GE(delayed.seconds(), 0.29);
}

TEST_F(MessageFaults, ADelayedRequestIsServedLater) {
    playFault(receiving(Message::REGISTER_INPUTS), Delay{300ms});
    Client client = connect();
    const test::Stopwatch delayed;
    subscribeFirst(client);
    EXPECT_GE(delayed.seconds(), 0.29);
}

TEST_F(MessageFaults, OtherClientsAreNotDelayed) {
    playFault(sending(Message::UPDATE).onConnection(1), Delay{1h});
    Client first = connect();
    subscribeFirst(first);
    Client second = connect();
    subscribeFirst(second);
    EXPECT_EQ(nextAfterSetting(second, 1), updateOfFirst(kOne));
    EXPECT_TRUE(first.isQuietFor(100ms));
}

TEST_F(MessageFaults, ADuplicateFollowsItsMessage) {
    playFault(sending(Message::UPDATE).nthTime(1), Duplicate{2});
    Client client = connect();
    subscribeFirst(client);
    EXPECT_EQ(nextAfterSetting(client, 1), updateOfFirst(kOne));
    EXPECT_EQ(client.receiveFrame(), updateOfFirst(kOne));
    EXPECT_EQ(client.receiveFrame(), updateOfFirst(kOne));
    EXPECT_EQ(nextAfterSetting(client, 2), updateOfFirst(kTwo));
}

TEST_F(MessageFaults, ARequestThatIsDuplicatedIsServedAgain) {
    playFault(receiving(Message::ASK_VERSION), Duplicate{});
    Client client = connect();
    const std::string first = client.ask(versionRequest());
    EXPECT_EQ(client.receiveFrame(), first);
}

TEST_F(MessageFaults, ChangedIdsAreThoseOfTheWire) {
    playFault(sending(Message::INPUTS_CONFIRMED), ChangeIds{1'000});
    Client client = connect();
    EXPECT_EQ(client.ask(subscribe("A")), hexText(hex(inputReply("000003E9", "00000000 00000000", "A"))));
    EXPECT_EQ(nextAfterSetting(client, 1), updateOfFirst(kOne)) << "only the message of the trigger changes";
}

TEST_F(MessageFaults, ChangedValuesAndTypes) {
    play([](Scenario& scenario) {
        scenario.when(sending(Message::UPDATE).of("A").nthTime(1), ChangeValue{3});
        scenario.when(sending(Message::UPDATE).of("A").nthTime(2), ChangeType{true});
    });
    Client client = connect();
    subscribeFirst(client);
    EXPECT_EQ(nextAfterSetting(client, 1), updateOfFirst(kThree));
    EXPECT_EQ(nextAfterSetting(client, 2), hexText(hex(update("00000001 00000001 00000002"))));
    EXPECT_EQ(nextAfterSetting(client, 1), updateOfFirst(kOne));
}

TEST_F(MessageFaults, AReorderedMessageFollowsLaterOnes) {
    playFault(sending(Message::UPDATE).nthTime(1), Reorder{2});
    Client client = connect();
    subscribeFirst(client);
    host().setValue("A", HostValue::real(1));
    EXPECT_EQ(nextAfterSetting(client, 2), updateOfFirst(kTwo));
    EXPECT_EQ(nextAfterSetting(client, 3), updateOfFirst(kThree));
    EXPECT_EQ(client.receiveFrame(), updateOfFirst(kOne));
}

TEST_F(MessageFaults, ASplitMessageArrivesInPieces) {
    playFault(sending(Message::UPDATE).nthTime(1), Split{{1, 33, 9'999}, 150ms});
    Client client = connect();
    subscribeFirst(client);
    host().setValue("A", HostValue::real(1));
    const Bytes whole = hex(update("00000001 00000000 " + kOne));
    EXPECT_EQ(client.receive(1), Bytes(whole.begin(), whole.begin() + 1));
    EXPECT_TRUE(client.isQuietFor(50ms));
    EXPECT_EQ(client.receive(32), Bytes(whole.begin() + 1, whole.begin() + 33));
    EXPECT_TRUE(client.isQuietFor(50ms));
    EXPECT_EQ(client.receive(whole.size() - 33), Bytes(whole.begin() + 33, whole.end()));
    EXPECT_EQ(nextAfterSetting(client, 2), updateOfFirst(kTwo));
}

TEST_F(MessageFaults, ATruncatedMessageIsShort) {
    playFault(sending(Message::UPDATE).nthTime(1), Truncate{33});
    Client client = connect();
    subscribeFirst(client);
    host().setValue("A", HostValue::real(1));
    const Bytes whole = hex(update("00000001 00000000 " + kOne));
    EXPECT_EQ(client.receive(33), Bytes(whole.begin(), whole.begin() + 33));
    EXPECT_EQ(nextAfterSetting(client, 2), updateOfFirst(kTwo)) << "the next frame follows immediately";
}

TEST_F(MessageFaults, WrongLengthsAndCounts) {
    play([](Scenario& scenario) {
        scenario.when(sending(Message::UPDATE).nthTime(1), StateLength{0x00ABCDEF});
        scenario.when(sending(Message::UPDATE).nthTime(2), StateCount{0x00ABCDEF});
        scenario.when(sending(Message::UPDATE).nthTime(3), StateSimulatorId{0x1234});
    });
    Client client = connect();
    subscribeFirst(client);
    const Bytes whole = hex(update("00000001 00000000 " + kOne));
    const auto received = [&] {
        host().setValue("A", HostValue::real(1));
        return hexText(client.receive(whole.size()));
    };
    std::string wanted = hexText(whole);
    EXPECT_EQ(received(), "00 AB CD EF" + wanted.substr(11));
    EXPECT_EQ(received(), wanted.replace(52 * 3, 11, "00 AB CD EF"));
    wanted = hexText(whole);
    EXPECT_EQ(received(), wanted.replace(44 * 3, 11, "12 34 00 00"));
}

TEST_F(MessageFaults, GarbageIsThatOfTheSeed) {
    play([](Scenario& scenario) {
        scenario.seed = 7;
        scenario.when(sending(Message::VERSION), Garbage{64});
    });
    Client client = connect();
    client.send(versionRequest());
    EXPECT_EQ(client.receive(64), FaultSelector({}, 7).randomBytes(64));
}

TEST_F(MessageFaults, DelayedBytesHaveALimit) {
    options.maxQueuedBytes = 1'000;
    playFault(sending(Message::UPDATE), Delay{1h});
    Client client = connect();
    subscribeFirst(client);
    for (int i = 0; i < 20; ++i) {
        host().setValue("A", HostValue::real(static_cast<float>(i)));
    }
    EXPECT_EQ(client.end(), Client::End::CLOSED);
    EXPECT_TRUE(log.waitFor("too many bytes are delayed"));
    Client next = connect();
    EXPECT_TRUE(isServed(next));
}

}  // namespace
}  // namespace com_tesk::scenario_test
