// When the descriptor is readable, and which callbacks a dispatch runs.

#include <sys/epoll.h>
#include <unistd.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

class Dispatching : public SessionTest {
  protected:
    LoopbackHost host{record.options()};

    /// Waits until the input has received a value and the descriptor is readable.
    static void waitForValue(const Session& session, const Input<std::int32_t>& input, std::int32_t value) {
        ASSERT_TRUE(waitUntil([&] { return input.read().value == value; }));
        ASSERT_TRUE(isReadable(session.descriptor(), kWaitBound));
    }
};

TEST_F(Dispatching, DescriptorIsReadableExactlyWhileSomethingWaits) {
    Session session(optionsFor(host.port()));
    const auto lamp = session.input<std::int32_t>("LAMP");
    EXPECT_FALSE(isReadable(session.descriptor()));
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    EXPECT_FALSE(isReadable(session.descriptor(), 30ms)) << "there is no callback yet";
    lamp.onChange([](const auto&) {});
    EXPECT_TRUE(isReadable(session.descriptor())) << "a value has already arrived";
    EXPECT_EQ(session.dispatch(), 1U);
    EXPECT_FALSE(isReadable(session.descriptor(), 30ms));
    EXPECT_EQ(session.dispatch(), 0U);
    host.setValue("LAMP", HostValue::integer(1));
    waitForValue(session, lamp, 1);
    EXPECT_TRUE(isReadable(session.descriptor())) << "until something dispatches";
    EXPECT_EQ(session.dispatch(), 1U);
    EXPECT_FALSE(isReadable(session.descriptor(), 30ms));
}

TEST_F(Dispatching, OneDispatchOfSeveralCallbacksLeavesNothingReadable) {
    options.queueSize = 8;
    Session session(optionsFor(host.port()));
    const auto every = session.input<std::int32_t>("EVERY", Delivery::EVERY);
    std::size_t calls = 0;
    every.onChange([&](const auto&) { ++calls; });
    session.onLink([&](const LinkEvent&) { ++calls; });
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    for (std::int32_t i = 1; i <= 5; ++i) {
        host.setValue("EVERY", HostValue::integer(i));
    }
    ASSERT_TRUE(waitUntil([&] { return session.health().valuesIn == 6; }));
    std::this_thread::sleep_for(20ms);  // The last value is counted before it is queued.
    EXPECT_EQ(session.dispatch(), 10U) << "connecting, connected, answered, ready, and six values";
    EXPECT_EQ(calls, 10U);
    EXPECT_FALSE(isReadable(session.descriptor(), 30ms));
}

TEST_F(Dispatching, EventsComeFirstThenInputsThenTheUpdate) {
    Session session(optionsFor(host.port()));
    const auto first = session.input<std::int32_t>("FIRST");
    const auto second = session.input<std::int32_t>("SECOND");
    std::string order;
    session.onUpdate([&](std::size_t count) { order += "update" + std::to_string(count); });
    second.onChange([&](const auto&) {
        order += "second ";
        EXPECT_EQ(first.read().value, second.read().value);
    });
    first.onChange([&](const auto&) { order += "first "; });
    session.onLink([&](const LinkEvent& event) { order += std::string(toString(event.link)) + ' '; });
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    ASSERT_TRUE(waitUntil([&] { return session.health().valuesIn == 2; }));
    EXPECT_EQ(session.dispatch(), 7U);
    EXPECT_EQ(order, "connecting connected answered ready first second update2");
}

TEST_F(Dispatching, ValuesOfSeveralInputsKeepTheirOrder) {
    Session session(optionsFor(host.port()));
    const auto first = session.input<std::int32_t>("FIRST", Delivery::EVERY);
    const auto second = session.input<std::int32_t>("SECOND", Delivery::EVERY);
    std::string order;
    first.onChange([&](const auto& reading) { order += " first" + std::to_string(reading.value); });
    second.onChange([&](const auto& reading) { order += " second" + std::to_string(reading.value); });
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    for (std::int32_t i = 1; i <= 2; ++i) {
        host.setValue("FIRST", HostValue::integer(i));
        host.setValue("SECOND", HostValue::integer(i));
    }
    ASSERT_TRUE(waitUntil([&] { return session.health().valuesIn == 6; }));
    std::this_thread::sleep_for(20ms);  // The last value is counted before it is queued.
    EXPECT_EQ(session.dispatch(), 6U);
    EXPECT_EQ(order, " first0 second0 first1 second1 first2 second2");
}

TEST_F(Dispatching, CallbacksRunOnlyOnTheDispatchingThread) {
    Session session(optionsFor(host.port()));
    const auto lamp = session.input<std::int32_t>("LAMP");
    std::atomic<int> calls{0};
    std::atomic<int> elsewhere{0};
    const auto self = std::this_thread::get_id();
    const auto check = [&] {
        ++calls;
        elsewhere += std::this_thread::get_id() == self ? 0 : 1;
    };
    lamp.onChange([&](const auto&) { check(); });
    session.onLink([&](const auto&) { check(); });
    session.onUpdate([&](std::size_t) { check(); });
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    host.setValue("LAMP", HostValue::integer(1));
    waitForValue(session, lamp, 1);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(calls, 0) << "nothing has dispatched";
    ASSERT_TRUE(dispatchUntil(session, [&] { return calls >= 6; }));
    session.stop();
    const int before = calls;
    const std::size_t count = session.dispatch();
    EXPECT_EQ(count, static_cast<std::size_t>(calls - before));
    EXPECT_GT(calls, before) << "stopped, and the lost quality";
    EXPECT_EQ(elsewhere, 0);
}

TEST_F(Dispatching, OwnThreadRunsCallbacksByItself) {
    options.dispatch = Session::OWN_THREAD;
    std::atomic<std::int32_t> seen{-1};
    std::atomic<int> here{0};
    const auto self = std::this_thread::get_id();
    {
        Session session(optionsFor(host.port()));
        EXPECT_EQ(session.descriptor(), -1);
        const auto lamp = session.input<std::int32_t>("LAMP");
        lamp.onChange([&](const Reading<std::int32_t>& reading) {
            here += std::this_thread::get_id() == self ? 1 : 0;
            seen = reading.value;
        });
        session.start();
        host.setValue("LAMP", HostValue::integer(3));
        EXPECT_TRUE(waitUntil([&] { return seen == 3; }));
        EXPECT_EQ(session.dispatch(), 0U);
        session.stop();
        session.start();
        host.setValue("LAMP", HostValue::integer(4));
        EXPECT_TRUE(waitUntil([&] { return seen == 4; }));
    }
    EXPECT_EQ(here, 0);
}

TEST_F(Dispatching, WorksWithEpollInEdgeTriggeredMode) {
    Session session(optionsFor(host.port()));
    const auto lamp = session.input<std::int32_t>("LAMP");
    std::int32_t seen = 0;
    lamp.onChange([&](const Reading<std::int32_t>& reading) { seen = reading.value; });
    const int poller = epoll_create1(EPOLL_CLOEXEC);
    epoll_event interest{};
    interest.events = EPOLLIN | EPOLLET;
    ASSERT_EQ(epoll_ctl(poller, EPOLL_CTL_ADD, session.descriptor(), &interest), 0);
    session.start();
    for (std::int32_t i = 1; i <= 200; ++i) {
        host.setValue("LAMP", HostValue::integer(i));
        while (seen != i) {
            epoll_event event{};
            ASSERT_EQ(epoll_wait(poller, &event, 1, 10'000), 1) << "value " << i << " has not been signalled";
            session.dispatch();
        }
    }
    close(poller);
}

TEST_F(Dispatching, SlowDispatcherKeepsMemoryBounded) {
    options.queueSize = 16;
    Session session(optionsFor(host.port()));
    const auto every = session.input<std::int32_t>("EVERY", Delivery::EVERY);
    const auto newest = session.input<std::int32_t>("NEWEST");
    std::size_t calls = 0;
    std::size_t updates = 0;
    every.onChange([&](const auto&) { ++calls; });
    newest.onChange([&](const auto&) { ++calls; });
    session.onUpdate([&](std::size_t count) { updates = count; });
    session.onLink([&](const auto&) { ++calls; });
    session.start();
    for (int i = 0; i < 30; ++i) {
        session.stop();
        session.start();
    }
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    const std::uint64_t before = session.health().valuesIn;
    for (std::int32_t i = 1; i <= 1'000; ++i) {
        host.setValue("EVERY", HostValue::integer(i));
        host.setValue("NEWEST", HostValue::integer(i));
    }
    ASSERT_TRUE(waitUntil([&] { return session.health().valuesIn == before + 2'000; }));
    session.dispatch();
    EXPECT_LE(calls, 64U + 16U + 1U);
    EXPECT_GE(calls, 60U + 16U + 1U);
    EXPECT_GE(session.health().droppedInputs, 1'000U - 16U);
    EXPECT_GE(updates, 2'000U);
}

TEST_F(Dispatching, OldestLinkEventsAreDroppedAndCounted) {
    Session session(optionsFor(test::refusingPort()));
    std::vector<LinkEvent> events;
    session.onLink([&](const LinkEvent& event) { events.push_back(event); });
    for (int i = 0; i < 40; ++i) {  // Each brings CONNECTING and STOPPED, and perhaps a failure.
        session.start();
        ASSERT_TRUE(session.waitUntil(Link::CONNECTING, kWaitBound));
        session.stop();
    }
    session.dispatch();
    EXPECT_EQ(events.size(), 64U);
    EXPECT_GE(session.health().droppedEvents, 16U);
    EXPECT_EQ(events.back().link, Link::STOPPED);
    EXPECT_EQ(events.back().cause, Cause::STOPPED_BY_US);
}

TEST_F(Dispatching, ExceptionLeavesTheDescriptorReadableForTheOthers) {
    Session session(optionsFor(host.port()));
    int others = 0;
    session.input<float>("A").onChange([](const auto&) { throw std::runtime_error("from a callback"); });
    session.input<float>("B").onChange([&](const auto&) { ++others; });
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    EXPECT_THROW(session.dispatch(), std::runtime_error);
    EXPECT_TRUE(isReadable(session.descriptor()));
    EXPECT_EQ(session.dispatch(), 1U);
    EXPECT_EQ(others, 1);
}

TEST_F(Dispatching, ExceptionLeavesDispatchAndTheOthersWait) {
    Session session(optionsFor(host.port()));
    const auto throwing = session.input<std::int32_t>("THROWING", Delivery::EVERY);
    const auto other = session.input<std::int32_t>("OTHER");
    int calls = 0;
    int others = 0;
    throwing.onChange([&](const auto&) {
        if (++calls % 2 == 1) {
            throw std::runtime_error("from a callback");
        }
    });
    other.onChange([&](const auto&) { ++others; });
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    host.setValue("THROWING", HostValue::integer(1));
    host.setValue("THROWING", HostValue::integer(2));
    ASSERT_TRUE(waitUntil([&] { return throwing.read().number == 3; }));
    ASSERT_TRUE(isReadable(session.descriptor(), kWaitBound));
    EXPECT_THROW(session.dispatch(), std::runtime_error);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(others, 0);
    EXPECT_TRUE(isReadable(session.descriptor())) << "callbacks still wait";
    const auto again = [&] {
        try {
            session.dispatch();
        } catch (const std::runtime_error&) {
        }
        return calls == 3 && others == 1;
    };
    EXPECT_TRUE(waitUntil(again));
    EXPECT_FALSE(isReadable(session.descriptor(), 30ms) && session.dispatch() != 0);
}

}  // namespace
}  // namespace com_tesk::session_test
