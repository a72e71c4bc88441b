// Counts and times of a session, and the status of its parameters.

#include <algorithm>
#include <string>
#include <vector>

#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

using Healths = SessionTest;

TEST_F(Healths, NothingHasHappenedBeforeStart) {
    options.simulatorId = 12;
    Session session(options);
    const Health health = session.health();
    EXPECT_EQ(health.link, Link::STOPPED);
    EXPECT_EQ(health.lastCause, Cause::NONE);
    EXPECT_EQ(health.lastError, 0);
    EXPECT_EQ(health.connects + health.losses + health.failedAttempts + health.framesIn + health.framesOut +
                  health.bytesIn + health.bytesOut + health.valuesIn + health.valuesOut + health.overwritten +
                  health.droppedOutputs + health.droppedInputs + health.droppedEvents + health.unknownIds,
              0U);
    EXPECT_EQ(health.hostVersion, "");
    EXPECT_EQ(health.protocolVersion, 0U);
    EXPECT_EQ(health.simulatorId, 12U);
    EXPECT_EQ(health.roundTrip, -1us);
    EXPECT_EQ(health.sinceConnected, -1ms);
    EXPECT_EQ(health.sinceReceived, -1ms);
}

TEST_F(Healths, FramesBytesAndValuesAreCountedExactly) {
    ScriptedHost host;
    options.gather = 1h;
    Session session(optionsFor(host.port()));
    const auto altitude = session.output<float>("ALT");
    session.output<float>("SPEED");
    const auto lamp = session.input<bool>("LAMP");
    session.start();
    const auto peer = acceptAndAnswer(host, 3);
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    altitude.set(1);
    session.flush();
    ASSERT_EQ(readRequest(*peer).records.size(), 1U);
    peer->send(test::hexFrame(test::update(3, {test::updated(101, 1, "00 00 00 01"), test::updated(9, 1, "00 00 00 01"),
                                               test::updated(101, 1, "00 00 00 00")})));
    ASSERT_TRUE(waitUntil([&] { return lamp.read().number == 3; }));
    const Health health = session.health();
    EXPECT_EQ(health.link, Link::READY);
    EXPECT_EQ(health.framesOut, 4U) << "version, outputs, inputs, one value";
    // Headers of 32, sub-headers with the simulator word of 16.
    EXPECT_EQ(health.bytesOut, 4U * 32 + (16 + 4) + (16 + 4 + 2 * 40) + (16 + 4 + 44) + (16 + 8 + 12));
    EXPECT_EQ(health.framesIn, 4U) << "version, two confirmations, one update";
    EXPECT_EQ(health.bytesIn, 4U * 32 + (16 + 128 + 8) + (16 + 4 + 2 * 48) + (16 + 4 + 52) + (20 + 4 + 3 * 12));
    EXPECT_EQ(health.valuesOut, 1U);
    EXPECT_EQ(health.valuesIn, 3U) << "that of the confirmation, and two of the update";
    EXPECT_EQ(health.unknownIds, 1U);
    EXPECT_EQ(health.hostVersion, "scripted");
    EXPECT_EQ(health.protocolVersion, 9U);
    EXPECT_GE(health.roundTrip, 0us);
    EXPECT_LT(health.roundTrip, 10s);
    EXPECT_GE(health.sinceConnected, 0ms);
    EXPECT_GE(health.sinceReceived, 0ms);
    EXPECT_LT(health.sinceReceived, 10s);
}

TEST_F(Healths, AgesGrowAndEndWithTheConnection) {
    ScriptedHost host;
    Session session(optionsFor(host.port()));
    std::vector<Cause> causes;
    session.onLink([&](const LinkEvent& event) { causes.push_back(event.cause); });
    session.start();
    {
        const auto peer = acceptAndAnswer(host, 1);
        ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
        std::this_thread::sleep_for(20ms);
        EXPECT_GE(session.health().sinceConnected, 20ms);
        EXPECT_GE(session.health().sinceReceived, 19ms);
        host.stopListening();
    }
    ASSERT_TRUE(waitUntil([&] { return session.health().losses == 1; }));
    const Health health = session.health();
    EXPECT_EQ(health.sinceConnected, -1ms);
    EXPECT_GE(health.sinceReceived, 20ms);
    EXPECT_EQ(health.connects, 1U);
    EXPECT_EQ(health.hostVersion, "scripted");
    // The next attempt is refused, soon after the loss.
    EXPECT_TRUE(health.lastCause == Cause::CLOSED || health.lastCause == Cause::REFUSED) << toString(health.lastCause);
    ASSERT_TRUE(waitUntil([&] { return session.health().lastCause == Cause::REFUSED; }));
    session.dispatch();
    const auto failure = std::find_if(causes.begin(), causes.end(), [](Cause cause) { return cause != Cause::NONE; });
    ASSERT_NE(failure, causes.end());
    EXPECT_EQ(*failure, Cause::CLOSED);
}

TEST_F(Healths, RoundTripIsThatOfTheVersionRequest) {
    ScriptedHost host;
    Session session(optionsFor(host.port()));
    session.start();
    const auto peer = host.accept();
    const Request version = readRequest(*peer);
    std::this_thread::sleep_for(40ms);
    answer(*peer, version);
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    EXPECT_GE(session.health().roundTrip, 40ms);
    EXPECT_LT(session.health().roundTrip, 40ms + busy(100ms));
}

TEST_F(Healths, ParametersAreListedWithTheirState) {
    ScriptedHost host;
    options.gather = 1h;
    Session session(optionsFor(host.port()));
    const auto altitude = session.output<float>("ALT");
    const auto gear = session.output<std::int32_t>("GEAR", Delivery::EVERY);
    const auto lamp = session.input<bool>("LAMP");
    const auto never = session.input<float>("NEVER");
    altitude.set(2.5F);
    gear.set(-3);
    auto list = session.parameters();
    ASSERT_EQ(list.size(), 4U);
    EXPECT_EQ(list[0].name + list[1].name + list[2].name + list[3].name, "ALTGEARLAMPNEVER");
    EXPECT_EQ(list[0].value, 2.5);
    EXPECT_EQ(list[1].value, -3);
    EXPECT_EQ(list[1].delivery, Delivery::EVERY);
    EXPECT_EQ(list[1].type, ParameterStatus::Type::INT);
    EXPECT_EQ(list[2].direction, ParameterStatus::Direction::INPUT);
    EXPECT_EQ(list[2].type, ParameterStatus::Type::BOOL);
    for (const ParameterStatus& one : list) {
        EXPECT_FALSE(one.isConfirmed);
        EXPECT_EQ(one.quality, Quality::NEVER);
        EXPECT_EQ(one.age, -1ms);
        EXPECT_EQ(one.count, 0U);
    }
    session.start();
    const auto peer = acceptAndAnswer(host, 2);
    readRequest(*peer);
    peer->send(test::hexFrame(test::inputConfirmation(1, {test::confirmedInput(50, 1, "00 00 00 05", "LAMP")})));
    ASSERT_TRUE(session.waitConfirmed({altitude, gear, lamp}, kWaitBound));
    ASSERT_TRUE(waitUntil([&] { return session.health().valuesOut == 2; }));
    EXPECT_FALSE(never.isConfirmed());
    list = session.parameters();
    EXPECT_TRUE(list[0].isConfirmed && list[1].isConfirmed && list[2].isConfirmed && !list[3].isConfirmed);
    EXPECT_EQ(list[0].count, 1U);
    EXPECT_EQ(list[2].count, 1U);
    EXPECT_EQ(list[2].value, 1.0);
    EXPECT_EQ(list[2].quality, Quality::GOOD);
    EXPECT_GE(list[2].age, 0ms);
    EXPECT_LT(list[2].age, 10s);
}

}  // namespace
}  // namespace com_tesk::session_test
