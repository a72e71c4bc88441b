// Connecting, connecting again, and how long both take.

#include <atomic>
#include <string>

#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

using Reconnecting = SessionTest;

TEST_F(Reconnecting, StartToTheFirstValueTakesMilliseconds) {
    LoopbackHost host(record.options());
    Took fastest{10s, 10s};
    // The fastest of several: a busy machine delays some.
    for (int i = 0; i < 60 && fastest > busy(2ms); ++i) {
        Session session(optionsFor(host.port()));
        const std::string name = "OUT" + std::to_string(i);
        session.output<std::int32_t>(name).set(i + 1);
        fastest = std::min(fastest, timeOf([&] {
                               session.start();
                               EXPECT_TRUE(host.waitForValue(name, HostValue::integer(i + 1), kWaitBound));
                           }));
    }
    EXPECT_LE(fastest, busy(2ms));
}

TEST_F(Reconnecting, WaitsReturnAtTheEvent) {
    LoopbackHost host(record.options());
    Took fastest{10s, 10s};
    for (int i = 0; i < 60 && fastest > busy(5ms); ++i) {
        Session session(optionsFor(host.port()));
        const auto output = session.output<std::int32_t>("OUT");
        const auto input = session.input<std::int32_t>("IN");
        output.set(i);
        session.start();
        fastest = std::min(fastest, timeOf([&] {
                               EXPECT_TRUE(session.waitUntil(Link::CONNECTED, kWaitBound));
                               EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound));
                               EXPECT_TRUE(session.waitConfirmed({output, input}, kWaitBound));
                               EXPECT_TRUE(session.flush(kWaitBound));
                           }));
    }
    EXPECT_LE(fastest, busy(5ms));
}

TEST_F(Reconnecting, WaitsEndAtTheirTimeWithoutAConnection) {
    Session session(optionsFor(test::refusingPort()));
    const auto output = session.output<std::int32_t>("OUT");
    output.set(1);
    EXPECT_TRUE(session.waitUntil(Link::STOPPED, 0ms));
    session.start();
    const auto endsAtItsTime = [](const auto& wait) {
        const auto took = timeOf([&] { EXPECT_FALSE(wait(60ms)); });
        EXPECT_GE(took, 60ms);
        EXPECT_LT(took, 60ms + busy(40ms));
        EXPECT_FALSE(wait(0ms));
        EXPECT_FALSE(wait(-5ms));
    };
    endsAtItsTime([&](auto time) { return session.waitUntil(Link::READY, time); });
    endsAtItsTime([&](auto time) { return session.waitConfirmed({output}, time); });
    endsAtItsTime([&](auto time) { return session.flush(time); });
    EXPECT_TRUE(session.waitConfirmed({}, 0ms));
    EXPECT_TRUE(session.waitUntil(Link::CONNECTING, Milliseconds::max()));
}

TEST_F(Reconnecting, WaitForTheEndReturnsAtTheStop) {
    LoopbackHost host(record.options());
    Session session(optionsFor(host.port()));
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    std::thread stopper([&] { session.stop(); });
    EXPECT_TRUE(session.waitUntil(Link::STOPPED, kWaitBound));
    stopper.join();
}

TEST_F(Reconnecting, NewestValuesArriveSoonAfterAHostRestart) {
    auto host = std::make_unique<LoopbackHost>(record.options());
    const std::uint16_t port = host->port();
    Session session(optionsFor(port));
    const auto altitude = session.output<std::int32_t>("ALT");
    const auto lamp = session.input<std::int32_t>("LAMP");
    session.start();
    Took fastest{10s, 10s};
    for (int restart = 1; restart <= 3; ++restart) {
        ASSERT_TRUE(session.waitConfirmed({altitude, lamp}, kWaitBound));
        const std::uint64_t failedBefore = session.health().failedAttempts;
        host.reset();
        ASSERT_TRUE(waitUntil([&] { return session.link() == Link::CONNECTING; }));
        altitude.set(restart);
        ASSERT_TRUE(waitUntil([&] { return session.health().failedAttempts > failedBefore; }));
        host = std::make_unique<LoopbackHost>(record.options(port));
        fastest = std::min(
            fastest, timeOf([&] { EXPECT_TRUE(host->waitForValue("ALT", HostValue::integer(restart), kWaitBound)); }));
        EXPECT_TRUE(host->waitForSubscribers("LAMP", 1, kWaitBound));
    }
    EXPECT_LE(fastest, busy(60ms));
    EXPECT_EQ(session.health().connects, 4U);
    EXPECT_EQ(session.health().losses, 3U);
}

TEST_F(Reconnecting, FirstAttemptAfterALossComesAtOnce) {
    ScriptedHost host;
    options.retry = 300ms;
    Session session(optionsFor(host.port()));
    session.start();
    {
        const auto peer = acceptAndAnswer(host, 1);
        ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
        std::this_thread::sleep_for(options.retry);
    }
    EXPECT_LT(timeOf([&] { EXPECT_NE(host.accept(), nullptr); }), 290ms);
}

TEST_F(Reconnecting, AttemptsAreNotCloserThanTheRetryTime) {
    ScriptedHost host;
    options.retry = 60ms;
    Session session(optionsFor(host.port()));
    const auto took = timeOf([&] {
        session.start();
        for (int i = 0; i < 6; ++i) {
            ASSERT_NE(host.accept(), nullptr);  // And closed at once.
        }
    });
    EXPECT_GE(took, 5 * 60ms - 2ms);
    EXPECT_LT(took, 5 * 60ms + busy(100ms));
}

TEST_F(Reconnecting, AllOperationsOfManyThreadsAtOnce) {
    LoopbackHost host(record.options());
    options.retry = 1ms;
    options.gather = 0us;
    options.heartbeat = 5ms;
    options.dispatch = Session::OWN_THREAD;
    std::atomic<std::uint64_t> calls{0};
    Session session(optionsFor(host.port()));
    const auto fixed = session.output<std::int32_t>("FIXED");
    const auto looped = session.input<std::int32_t>("FIXED");
    looped.onChange([&](const auto&) { ++calls; });
    looped.setMaxAge(2ms);
    std::atomic<bool> isDone{false};
    std::vector<std::thread> threads;
    const auto repeat = [&](const std::function<void(int)>& action) {
        threads.emplace_back([&isDone, action] {
            for (int i = 0; !isDone; ++i) {
                action(i);
            }
        });
    };
    repeat([&](int i) {
        fixed.set(i);
        session.flush();
    });
    repeat([&](int i) {
        const auto passing = session.output<float>("PASSING" + std::to_string(i % 5), Delivery::EVERY);
        passing.set(1);
        session.flush(1ms);
        passing.withdraw();
    });
    repeat([&](int i) {
        const auto passing = session.input<bool>("PASSING" + std::to_string(i % 5), Delivery::EVERY);
        passing.onChange([&](const auto&) { ++calls; });
        session.waitConfirmed({passing}, 1ms);
        passing.withdraw();
    });
    repeat([&](int) {
        looped.read();
        session.health();
        session.parameters();
    });
    repeat([&](int) {
        session.onLink([&](const auto&) { ++calls; });
        session.onUpdate([&](std::size_t) { ++calls; });
        session.waitUntil(Link::READY, 1ms);
    });
    repeat([&](int i) {
        session.start();
        std::this_thread::sleep_for(5ms);
        i % 2 == 0 ? session.stop() : static_cast<void>(session.stop(2ms));
    });
    repeat([&](int i) {
        std::this_thread::sleep_for(7ms);
        host.dropClients(i % 2 == 0 ? LoopbackHost::DropMode::GRACEFUL : LoopbackHost::DropMode::RESET);
    });
    std::this_thread::sleep_for(1s);
    isDone = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    session.start();
    fixed.set(-1);
    EXPECT_TRUE(host.waitForValue("FIXED", HostValue::integer(-1), kWaitBound));
    EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    EXPECT_GT(calls, 0U);
    EXPECT_EQ(session.parameters().size(), 2U);
}

}  // namespace
}  // namespace com_tesk::session_test
