// Values of inputs: their quality, their type, queues, and reading from several threads.

#include <atomic>
#include <cmath>
#include <limits>
#include <string>

#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

class Inputs : public SessionTest {
  protected:
    LoopbackHost host{record.options()};
};

TEST_F(Inputs, ReadingBeforeTheFirstValueIsNever) {
    Session session(optionsFor(host.port()));
    const auto lamp = session.input<float>("LAMP");
    const auto reading = lamp.read();
    EXPECT_EQ(reading.quality, Quality::NEVER);
    EXPECT_EQ(reading.value, 0.0F);
    EXPECT_EQ(reading.number, 0U);
    EXPECT_EQ(reading.received, Clock::time_point());
}

TEST_F(Inputs, NothingIsDispatchedBeforeTheFirstValue) {
    options.retry = 1ms;
    Session session(optionsFor(test::refusingPort()));
    int calls = 0;
    session.input<float>("LAMP").onChange([&](const auto&) { ++calls; });
    session.start();
    ASSERT_TRUE(waitUntil([&] { return session.health().failedAttempts >= 3; }));
    session.dispatch();
    EXPECT_EQ(calls, 0);
}

TEST_F(Inputs, ConfirmationDeliversTheCurrentValue) {
    host.setValue("LAMP", HostValue::integer(5));
    Session session(optionsFor(host.port()));
    const auto lamp = session.input<std::int32_t>("LAMP");
    const auto began = Clock::now();
    session.start();
    ASSERT_TRUE(session.waitConfirmed({lamp}, kWaitBound));
    const auto reading = lamp.read();
    EXPECT_EQ(reading.value, 5);
    EXPECT_EQ(reading.quality, Quality::GOOD);
    EXPECT_EQ(reading.number, 1U);
    EXPECT_GE(reading.received, began);
    EXPECT_LE(reading.received, Clock::now());
    host.setValue("LAMP", HostValue::integer(6));
    ASSERT_TRUE(waitUntil([&] { return lamp.read().value == 6; }));
    EXPECT_EQ(lamp.read().number, 2U);
    EXPECT_GE(lamp.read().received, reading.received);
}

TEST_F(Inputs, ConfirmationIsSeenAfterItsValue) {
    host.setValue("LAMP", HostValue::integer(5));
    // A value of another type is reported just before it is stored.
    const Input<float>* stored = nullptr;
    std::atomic<int> early{-1};
    options.log = [&](Session::Level /*level*/, std::string_view text) {
        if (text.find("is declared otherwise") != std::string_view::npos) {
            early = stored->isConfirmed() ? 1 : 0;
        }
    };
    Session session(optionsFor(host.port()));
    const auto lamp = session.input<float>("LAMP");
    stored = &lamp;
    session.start();
    ASSERT_TRUE(session.waitConfirmed({lamp}, kWaitBound));
    EXPECT_EQ(lamp.read().value, 5.0F);
    EXPECT_EQ(early, 0);
}

TEST_F(Inputs, QualityFollowsTheConnection) {
    ScriptedHost scripted;
    Session session(optionsFor(scripted.port()));
    const auto lamp = session.input<float>("LAMP");
    session.start();
    {
        const auto peer = acceptAndAnswer(scripted, 1);
        const Request inputs = readRequest(*peer);
        EXPECT_EQ(lamp.read().quality, Quality::NEVER);
        EXPECT_FALSE(lamp.isConfirmed());
        peer->send(test::hexFrame(test::inputConfirmation(1, {test::confirmedInput(3, 0, "41 20 00 00", "LAMP")})));
        ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
        EXPECT_EQ(lamp.read().quality, Quality::GOOD);
        scripted.stopListening();
    }
    ASSERT_TRUE(waitUntil([&] { return lamp.read().quality == Quality::LOST; }));
    EXPECT_EQ(lamp.read().value, 10.0F);
    EXPECT_FALSE(lamp.isConfirmed());
    scripted.listenAgain();
    const auto peer = acceptAndAnswer(scripted, 1);
    ASSERT_TRUE(session.waitUntil(Link::ANSWERED, kWaitBound));
    EXPECT_EQ(lamp.read().quality, Quality::UNCONFIRMED);
    EXPECT_EQ(lamp.read().value, 10.0F);
    answer(*peer, readRequest(*peer));
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    EXPECT_EQ(lamp.read().quality, Quality::GOOD);
    EXPECT_EQ(lamp.read().value, 0.0F);
    session.stop();
    EXPECT_EQ(lamp.read().quality, Quality::LOST);
}

TEST_F(Inputs, EveryChangeOfQualityIsDispatched) {
    ScriptedHost scripted;
    Session session(optionsFor(scripted.port()));
    const auto lamp = session.input<float>("LAMP");
    std::vector<std::string> seen;
    lamp.onChange([&](const Reading<float>& reading) { seen.emplace_back(toString(reading.quality)); });
    session.start();
    {
        const auto peer = acceptAndAnswer(scripted, 2);
        ASSERT_TRUE(dispatchUntil(session, [&] { return seen.size() == 1; }));
        scripted.stopListening();
    }
    ASSERT_TRUE(dispatchUntil(session, [&] { return seen.size() == 2; }));
    scripted.listenAgain();
    const auto peer = acceptAndAnswer(scripted, 1);
    ASSERT_TRUE(dispatchUntil(session, [&] { return seen.size() == 3; }));
    answer(*peer, readRequest(*peer));
    ASSERT_TRUE(dispatchUntil(session, [&] { return seen.size() == 4; }));
    EXPECT_EQ(seen, (std::vector<std::string>{"good", "lost", "unconfirmed", "good"}));
}

TEST_F(Inputs, ValueBecomesStaleAtItsMaximumAge) {
    Session session(optionsFor(host.port()));
    const auto lamp = session.input<float>("LAMP");
    std::vector<Reading<float>> readings;
    lamp.onChange([&](const Reading<float>& reading) { readings.push_back(reading); });
    lamp.setMaxAge(60ms);
    session.start();
    ASSERT_TRUE(dispatchUntil(session, [&] { return readings.size() == 2; }));
    EXPECT_EQ(readings[0].quality, Quality::GOOD);
    EXPECT_EQ(readings[1].quality, Quality::STALE);
    const auto age = Clock::now() - readings[1].received;
    EXPECT_GE(age, 60ms);
    EXPECT_LT(age, 60ms + busy(30ms));
    EXPECT_EQ(lamp.read().quality, Quality::STALE);
    host.setValue("LAMP", HostValue::real(0));
    ASSERT_TRUE(dispatchUntil(session, [&] { return readings.size() == 4; }));
    EXPECT_EQ(readings[2].quality, Quality::GOOD) << "the same value is news after a stale one";
    EXPECT_EQ(readings[3].quality, Quality::STALE);
    lamp.setMaxAge(1h);
    ASSERT_TRUE(dispatchUntil(session, [&] { return readings.size() == 5; }));
    EXPECT_EQ(readings[4].quality, Quality::GOOD) << "good again with a longer age";
    lamp.setMaxAge(1ms);
    ASSERT_TRUE(dispatchUntil(session, [&] { return readings.size() == 6; }));
    EXPECT_EQ(readings[5].quality, Quality::STALE) << "and stale again with a shorter one";
    lamp.setMaxAge(0ms);
    EXPECT_EQ(lamp.read().quality, Quality::GOOD);
    lamp.setMaxAge(-1ms);
    EXPECT_EQ(lamp.read().quality, Quality::GOOD) << "off";
    EXPECT_FALSE(dispatchUntil(
        session, [&] { return readings.size() > 7; }, 150ms))
        << "at most the change back";
}

TEST_F(Inputs, ValueOfAnotherTypeIsConvertedAndReportedOnce) {
    Session session(optionsFor(host.port()));
    const auto whole = session.input<std::int32_t>("WHOLE");
    const auto real = session.input<float>("REAL");
    const auto lamp = session.input<bool>("LAMP");
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    for (const float number : {2.5F, -3.6F, 1e30F}) {
        host.setValue("WHOLE", HostValue::real(number));
        host.setValue("REAL", HostValue::integer(-7));
        host.setValue("LAMP", HostValue::real(number));
    }
    const auto largest = std::numeric_limits<std::int32_t>::max();
    ASSERT_TRUE(waitUntil([&] { return whole.read().value == largest && lamp.read().number == 4; }));
    EXPECT_EQ(real.read().value, -7.0F);
    EXPECT_TRUE(lamp.read().value);
    EXPECT_EQ(logged(Session::Level::WARNING, "\"WHOLE\" as a float"), 1U);
    EXPECT_EQ(logged(Session::Level::WARNING, "\"REAL\" as an integer"), 1U);
    EXPECT_EQ(logged(Session::Level::WARNING, "\"LAMP\" as a float"), 1U);
    host.setValue("LAMP", HostValue::integer(0));
    EXPECT_TRUE(waitUntil([&] { return !lamp.read().value; }));
}

TEST_F(Inputs, NumberKeepsTheTypeOfTheHost) {
    Session session(optionsFor(host.port()));
    const auto any = session.input<Number>("ANY");
    std::string seen;
    any.onChange([&](const Reading<Number>& reading) {
        seen += (reading.value.isInteger ? " i" : " f") + std::to_string(reading.value.integer) + '/' +
                std::to_string(reading.value.real);
    });
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    const auto deliver = [&](std::uint64_t number) {
        ASSERT_TRUE(waitUntil([&] { return any.read().number == number; }));
        session.dispatch();
    };
    deliver(1);
    host.setValue("ANY", HostValue::integer(0));  // The same bits as before: only the type changes.
    deliver(2);
    EXPECT_EQ(session.parameters().at(0).value, 0);
    host.setValue("ANY", HostValue::integer(16'777'217));
    deliver(3);
    EXPECT_EQ(session.parameters().at(0).value, 16'777'217);
    host.setValue("ANY", HostValue::real(-2.75F));
    deliver(4);
    EXPECT_EQ(session.parameters().at(0).value, -2.75);
    EXPECT_EQ(session.parameters().at(0).type, ParameterStatus::Type::NUMBER);
    EXPECT_EQ(seen, " f0/0.000000 i0/0.000000 i16777217/16777216.000000 f-3/-2.750000");
    EXPECT_EQ(logged(Session::Level::WARNING, "converted"), 0U);
    EXPECT_THROW(session.input<float>("ANY"), std::invalid_argument);
}

TEST_F(Inputs, NewestWinsWhenDispatchIsLate) {
    Session session(optionsFor(host.port()));
    const auto lamp = session.input<std::int32_t>("LAMP");
    std::vector<std::int32_t> seen;
    lamp.onChange([&](const Reading<std::int32_t>& reading) { seen.push_back(reading.value); });
    session.start();
    for (std::int32_t i = 1; i <= 100; ++i) {
        host.setValue("LAMP", HostValue::integer(i));
    }
    ASSERT_TRUE(waitUntil([&] { return lamp.read().value == 100; }));
    EXPECT_EQ(session.dispatch(), 1U);
    EXPECT_EQ(seen, (std::vector<std::int32_t>{100}));
}

TEST_F(Inputs, EqualValuesAreDispatchedOnlyWithEvery) {
    Session session(optionsFor(host.port()));
    const auto newest = session.input<std::int32_t>("NEWEST");
    const auto every = session.input<std::int32_t>("EVERY", Delivery::EVERY);
    std::size_t newestCalls = 0;
    std::size_t everyCalls = 0;
    newest.onChange([&](const auto&) { ++newestCalls; });
    every.onChange([&](const auto&) { ++everyCalls; });
    session.start();
    for (std::uint64_t i = 0; i < 5; ++i) {
        ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
        host.setValue("NEWEST", HostValue::integer(0));
        host.setValue("EVERY", HostValue::integer(0));
        ASSERT_TRUE(waitUntil([&] { return every.read().number == i + 2; }));
        session.dispatch();
    }
    EXPECT_EQ(newestCalls, 1U);
    EXPECT_EQ(everyCalls, 6U);
}

TEST_F(Inputs, QueueOfEveryKeepsTheFirstAndCountsWhatItDrops) {
    options.queueSize = 4;
    Session session(optionsFor(host.port()));
    const auto lamp = session.input<std::int32_t>("LAMP", Delivery::EVERY);
    std::vector<std::int32_t> seen;
    lamp.onChange([&](const Reading<std::int32_t>& reading) {
        seen.push_back(reading.value);
        EXPECT_EQ(reading.number, static_cast<std::uint64_t>(reading.value) + 1);
    });
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    for (std::int32_t i = 1; i <= 9; ++i) {
        host.setValue("LAMP", HostValue::integer(i));
    }
    ASSERT_TRUE(waitUntil([&] { return lamp.read().number == 10; }));
    // The number of the value and the queue change one after the other.
    ASSERT_TRUE(waitUntil([&] { return session.health().valuesIn == 10; }));
    ASSERT_TRUE(waitUntil([&] { return session.health().droppedInputs == 6; }));
    EXPECT_EQ(session.dispatch(), 4U);
    EXPECT_EQ(seen, (std::vector<std::int32_t>{0, 1, 2, 3}));
    host.setValue("LAMP", HostValue::integer(10));
    EXPECT_TRUE(dispatchUntil(session, [&] { return seen.size() == 5; }));
    EXPECT_EQ(seen.back(), 10);
}

TEST_F(Inputs, ReadingsOfSeveralThreadsAreNeverTorn) {
    Session session(optionsFor(host.port()));
    const auto lamp = session.input<std::int32_t>("LAMP");
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    std::atomic<bool> isDone{false};
    std::atomic<std::uint64_t> reads{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            Reading<std::int32_t> before;
            while (!isDone) {
                const auto reading = lamp.read();
                ++reads;
                // The value is always one less than its number.
                EXPECT_EQ(reading.number, static_cast<std::uint64_t>(reading.value) + 1);
                EXPECT_GE(reading.number, before.number);
                EXPECT_GE(reading.received, before.received);
                EXPECT_EQ(reading.quality, Quality::GOOD);
                if (reading.number == before.number) {
                    EXPECT_EQ(reading.received, before.received);
                }
                before = reading;
            }
        });
    }
    for (std::int32_t i = 1; i <= 3'000; ++i) {
        host.setValue("LAMP", HostValue::integer(i));
    }
    EXPECT_TRUE(waitUntil([&] { return lamp.read().value == 3'000; }));
    isDone = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_GT(reads, 100U);
}

}  // namespace
}  // namespace com_tesk::session_test
