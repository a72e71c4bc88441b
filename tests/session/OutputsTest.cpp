// Which values of an output reach the host.

#include <cmath>
#include <limits>
#include <string>

#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

using Kind = HostEvent::Kind;

class Outputs : public SessionTest {
  protected:
    Outputs() { options.gather = 1h; }  // Values leave only with a flush.

    LoopbackHost host{record.options()};

    /// Starts, and waits until everything is confirmed.
    static void startReady(Session& session) {
        session.start();
        ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    }
};

TEST_F(Outputs, NewestValueWinsAndOthersAreCounted) {
    Session session(optionsFor(host.port()));
    const auto altitude = session.output<std::int32_t>("ALT");
    startReady(session);
    for (int i = 1; i <= 5; ++i) {
        EXPECT_TRUE(altitude.set(i));
    }
    session.flush();
    ASSERT_TRUE(record.waitForPublished("ALT", "5"));
    EXPECT_EQ(session.health().overwritten, 4U);
    EXPECT_EQ(session.health().valuesOut, 1U);
    EXPECT_EQ(session.health().droppedOutputs, 0U);
}

TEST_F(Outputs, ValueSetBeforeTheConfirmationLeavesOnceAfterIt) {
    Session session(optionsFor(host.port()));
    const auto altitude = session.output<std::int32_t>("ALT");
    session.output<float>("UNSET");
    altitude.set(1);
    altitude.set(2);
    startReady(session);
    ASSERT_TRUE(record.waitForPublished("ALT", "2"));
    session.flush();
    EXPECT_TRUE(session.flush(kWaitBound));
    altitude.set(3);
    session.flush();
    ASSERT_TRUE(record.waitForPublished("ALT", "2 3"));
    EXPECT_EQ(record.count(Kind::PUBLISHED), 2U) << "an output without a value publishes nothing";
    EXPECT_EQ(session.health().overwritten, 1U);
}

TEST_F(Outputs, EveryValueArrivesInOrder) {
    Session session(optionsFor(host.port()));
    const auto gear = session.output<std::int32_t>("GEAR", Delivery::EVERY);
    startReady(session);
    std::string expected;
    for (int i = 0; i < 64; ++i) {
        EXPECT_TRUE(gear.set(i));
        expected += (i == 0 ? "" : " ") + std::to_string(i);
    }
    session.flush();
    EXPECT_TRUE(record.waitForPublished("GEAR", expected));
    EXPECT_EQ(session.health().overwritten, 0U);
}

TEST_F(Outputs, ButtonPressedAndReleasedAtOnceArrives) {
    options.gather = 1ms;
    Session session(optionsFor(host.port()));
    const auto button = session.output<bool>("BUTTON", Delivery::EVERY);
    startReady(session);
    std::string expected;
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(button.set(true));
        EXPECT_TRUE(button.set(false));
        expected += i == 0 ? "1 0" : " 1 0";
    }
    EXPECT_TRUE(record.waitForPublished("BUTTON", expected));
    EXPECT_EQ(host.value("BUTTON"), HostValue::integer(0));
}

TEST_F(Outputs, FullQueueRefusesTheValueAndCountsIt) {
    for (const std::size_t size : {1U, 2U, 7U}) {
        options.queueSize = size;
        Session session(optionsFor(host.port()));
        const std::string name = "Q" + std::to_string(size);
        const auto queued = session.output<std::int32_t>(name, Delivery::EVERY);
        startReady(session);
        std::string expected;
        for (std::size_t i = 0; i < size; ++i) {
            EXPECT_TRUE(queued.set(static_cast<std::int32_t>(i)));
            expected += (i == 0 ? "" : " ") + std::to_string(i);
        }
        EXPECT_FALSE(queued.set(100));
        EXPECT_FALSE(queued.set(101));
        EXPECT_EQ(session.health().droppedOutputs, 2U);
        EXPECT_TRUE(session.flush(kWaitBound));
        EXPECT_TRUE(queued.set(102));
        session.flush();
        EXPECT_TRUE(record.waitForPublished(name, expected + " 102"));
        EXPECT_EQ(session.health().droppedOutputs, 2U);
    }
}

TEST_F(Outputs, WithoutAConnectionOnlyTheNewestOfEveryIsKept) {
    options.queueSize = 2;
    Session session(optionsFor(host.port()));
    const auto gear = session.output<std::int32_t>("GEAR", Delivery::EVERY);
    for (int i = 1; i <= 9; ++i) {
        EXPECT_TRUE(gear.set(i)) << "the newest value replaces the earlier one";
    }
    startReady(session);
    ASSERT_TRUE(record.waitForPublished("GEAR", "9"));
    EXPECT_EQ(session.health().overwritten, 8U);
    EXPECT_EQ(session.health().droppedOutputs, 0U);
    gear.set(10);
    gear.set(11);
    session.flush();
    EXPECT_TRUE(record.waitForPublished("GEAR", "9 10 11"));
}

TEST_F(Outputs, QueuedPressesOfALostConnectionAreNotReplayed) {
    Session session(optionsFor(host.port()));
    const auto gear = session.output<std::int32_t>("GEAR", Delivery::EVERY);
    startReady(session);
    gear.set(1);
    session.flush();
    ASSERT_TRUE(record.waitForPublished("GEAR", "1"));
    for (int i = 2; i <= 6; ++i) {
        EXPECT_TRUE(gear.set(i));
    }
    host.dropClients(LoopbackHost::DropMode::GRACEFUL);
    ASSERT_TRUE(waitUntil([&] { return session.health().connects == 2; }));
    ASSERT_TRUE(record.waitForPublished("GEAR", "1 6"));
    EXPECT_EQ(session.health().droppedOutputs, 4U);
    gear.set(7);
    session.flush();
    EXPECT_TRUE(record.waitForPublished("GEAR", "1 6 7"));
}

TEST_F(Outputs, NewestValueArrivesAgainAfterALoss) {
    Session session(optionsFor(host.port()));
    const auto altitude = session.output<float>("ALT");
    const auto gear = session.output<std::int32_t>("GEAR", Delivery::EVERY);
    startReady(session);
    altitude.set(1.5F);
    gear.set(3);
    session.flush();
    ASSERT_TRUE(record.waitForPublished("GEAR", "3"));
    host.dropClients(LoopbackHost::DropMode::RESET);
    EXPECT_TRUE(record.waitForPublished("ALT", "1.5 1.5"));
    EXPECT_TRUE(record.waitForPublished("GEAR", "3 3"));
}

TEST_F(Outputs, BitsOfAValueArriveUnchanged) {
    Session session(optionsFor(host.port()));
    const auto real = session.output<float>("REAL");
    const auto whole = session.output<std::int32_t>("WHOLE");
    const auto lamp = session.output<bool>("LAMP");
    startReady(session);
    const std::pair<float, std::uint32_t> reals[] = {{-0.0F, 0x80000000U},
                                                     {std::numeric_limits<float>::infinity(), 0x7F800000U},
                                                     {std::numeric_limits<float>::quiet_NaN(), 0x7FC00000U},
                                                     {std::numeric_limits<float>::denorm_min(), 1U},
                                                     {std::numeric_limits<float>::max(), 0x7F7FFFFFU}};
    for (const auto& [number, bits] : reals) {
        real.set(number);
        session.flush();
        EXPECT_TRUE(host.waitForValue("REAL", HostValue::fromBits(bits, false), kWaitBound)) << number;
    }
    for (const std::int32_t number :
         {-1, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
        whole.set(number);
        session.flush();
        EXPECT_TRUE(host.waitForValue("WHOLE", HostValue::integer(number), kWaitBound)) << number;
    }
    lamp.set(true);
    session.flush();
    EXPECT_TRUE(host.waitForValue("LAMP", HostValue::integer(1), kWaitBound));
}

TEST_F(Outputs, ValueLeavesByItselfAfterTheGatherTime) {
    for (const auto gather : {0us, 1'000us, 200'000us}) {
        options.gather = gather;
        Session session(optionsFor(host.port()));
        const std::string name = "G" + std::to_string(gather.count());
        const auto altitude = session.output<std::int32_t>(name);
        startReady(session);
        const auto began = Clock::now();
        altitude.set(1);
        ASSERT_TRUE(record.waitForPublished(name, "1"));
        EXPECT_GE(Clock::now() - began, gather);
    }
}

TEST_F(Outputs, ValuesOfManyThreadsAllArriveOrAreCounted) {
    constexpr int kThreads = 4;
    constexpr int kValues = 2'000;
    options.gather = 0us;
    options.queueSize = 16;
    Session session(optionsFor(host.port()));
    const auto shared = session.output<std::int32_t>("SHARED", Delivery::EVERY);
    const auto newest = session.output<std::int32_t>("NEWEST");
    startReady(session);
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kValues; ++i) {
                taken += shared.set(t * kValues + i) ? 1 : 0;
                newest.set(i);
                if (i % 8 == 0) {
                    session.flush();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    newest.set(-1);
    ASSERT_TRUE(session.flush(kWaitBound));
    const Health health = session.health();
    EXPECT_EQ(health.droppedOutputs, static_cast<std::uint64_t>(kThreads * kValues - taken));
    EXPECT_EQ(health.valuesOut + health.overwritten, static_cast<std::uint64_t>(taken + kThreads * kValues + 1));
    ASSERT_TRUE(waitUntil([&] { return record.count(Kind::PUBLISHED) == health.valuesOut; }));
    EXPECT_EQ(record.count(Kind::PUBLISHED, "SHARED"), static_cast<std::size_t>(taken));
    EXPECT_EQ(host.value("NEWEST"), HostValue::integer(-1));
    std::vector<int> last(kThreads, -1);
    std::istringstream arrived(record.published("SHARED"));
    for (int value = 0; arrived >> value;) {
        EXPECT_GT(value % kValues, last[static_cast<std::size_t>(value / kValues)]) << "the order of one thread";
        last[static_cast<std::size_t>(value / kValues)] = value % kValues;
    }
}

}  // namespace
}  // namespace com_tesk::session_test
