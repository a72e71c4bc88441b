// What a callback may do: everything.

#include <atomic>
#include <memory>
#include <string>

#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

class Callbacks : public SessionTest {
  protected:
    void SetUp() override { host.setValue("LAMP", HostValue::integer(1)); }

    /// Starts a session with the input LAMP, whose value 1 arrives.
    std::unique_ptr<Session> startWithLamp() {
        auto session = std::make_unique<Session>(optionsFor(host.port()));
        lamp = session->input<std::int32_t>("LAMP");
        return session;
    }

    LoopbackHost host{record.options()};
    Input<std::int32_t> lamp;
};

TEST_F(Callbacks, MayDeclareSetAndWithdraw) {
    const auto session = startWithLamp();
    Output<std::int32_t> answer;
    lamp.onChange([&](const Reading<std::int32_t>& reading) {
        answer = session->output<std::int32_t>("ANSWER");
        session->input<float>("LATER");
        answer.set(reading.value + 1);
        session->flush();
        lamp.withdraw();
    });
    session->start();
    ASSERT_TRUE(dispatchUntil(*session, [&] { return session->parameters().size() == 2; }));
    EXPECT_TRUE(record.waitForPublished("ANSWER", "2"));
    EXPECT_TRUE(host.waitForSubscribers("LAMP", 0, kWaitBound));
    EXPECT_TRUE(host.waitForSubscribers("LATER", 1, kWaitBound));
}

TEST_F(Callbacks, MayStopAndStartAgain) {
    const auto session = startWithLamp();
    int calls = 0;
    Took took;
    lamp.onChange([&](const Reading<std::int32_t>& reading) {
        if (reading.quality == Quality::GOOD && ++calls == 1) {
            took = timeOf([&] { session->stop(); });
            EXPECT_EQ(session->link(), Link::STOPPED);
            session->start();
        }
    });
    session->start();
    EXPECT_TRUE(dispatchUntil(*session, [&] { return calls == 2; })) << "the value of the second connection";
    EXPECT_LT(took, busy(50ms));
    EXPECT_EQ(session->health().connects, 2U);
    EXPECT_EQ(session->health().losses, 0U);
}

TEST_F(Callbacks, MayDestroyTheSession) {
    auto session = startWithLamp();
    const auto other = session->input<std::int32_t>("OTHER");
    int calls = 0;
    const auto destroy = [&](const auto&) {
        ++calls;
        session.reset();
    };
    lamp.onChange(destroy);
    other.onChange(destroy);
    session->onUpdate([&](std::size_t) { ++calls; });
    session->start();
    ASSERT_TRUE(session->waitUntil(Link::READY, kWaitBound));
    while (session != nullptr && isReadable(session->descriptor(), kWaitBound)) {
        session->dispatch();
    }
    EXPECT_EQ(session, nullptr);
    EXPECT_EQ(calls, 1) << "no callback runs after the destructor";
    EXPECT_TRUE(host.waitForClients(0, kWaitBound));
}

TEST_F(Callbacks, MayDestroyTheSessionOnItsOwnThread) {
    options.dispatch = Session::OWN_THREAD;
    auto session = startWithLamp();
    Latch destroyed;
    const auto alive = std::make_shared<int>();
    lamp.onChange([&, alive](const auto&) {
        session.reset();
        destroyed.open();
    });
    session->start();
    ASSERT_TRUE(destroyed.wait());
    EXPECT_TRUE(host.waitForClients(0, kWaitBound));
    EXPECT_TRUE(waitUntil([&] { return alive.use_count() == 1; })) << "the callback is destroyed, too";
}

TEST_F(Callbacks, MayReplaceAndRemoveThemselves) {
    const auto session = startWithLamp();
    std::string order;
    lamp.onChange([&](const auto&) {
        order += "first ";
        lamp.onChange([&](const auto&) {
            order += "second ";
            lamp.onChange(nullptr);
            order += "end";
        });
    });
    session->start();
    ASSERT_TRUE(dispatchUntil(*session, [&] { return order.size() > 13; }))
        << "a new function is called for the value that has arrived: " << order;
    host.setValue("LAMP", HostValue::integer(2));
    ASSERT_TRUE(waitUntil([&] { return lamp.read().value == 2; }));
    EXPECT_FALSE(isReadable(session->descriptor(), 30ms));
    EXPECT_EQ(order, "first second end");
}

TEST_F(Callbacks, NestedDispatchDoesNothing) {
    const auto session = startWithLamp();
    const auto other = session->input<std::int32_t>("OTHER");
    int depth = 0;
    int deepest = 0;
    int calls = 0;
    const auto nest = [&](const auto&) {
        deepest = std::max(deepest, ++depth);
        ++calls;
        EXPECT_EQ(session->dispatch(), 0U);
        --depth;
    };
    lamp.onChange(nest);
    other.onChange(nest);
    session->start();
    EXPECT_TRUE(dispatchUntil(*session, [&] { return calls == 2; }));
    EXPECT_EQ(deepest, 1);
}

TEST_F(Callbacks, DispatchOnASecondThreadDoesNothingMeanwhile) {
    const auto session = startWithLamp();
    std::size_t elsewhere = 99;
    int calls = 0;
    lamp.onChange([&](const auto&) {
        ++calls;
        std::thread second([&] { elsewhere = session->dispatch(); });
        second.join();
    });
    session->start();
    ASSERT_TRUE(dispatchUntil(*session, [&] { return calls == 1; }));
    EXPECT_EQ(elsewhere, 0U);
}

TEST_F(Callbacks, MayDispatchAnotherSessionThatDestroysThisOne) {
    auto outer = startWithLamp();
    const auto outerLamp = lamp;
    const auto inner = startWithLamp();
    int innerCalls = 0;
    lamp.onChange([&](const auto&) {
        ++innerCalls;
        outer.reset();
    });
    outerLamp.onChange([&](const auto&) { dispatchUntil(*inner, [&] { return innerCalls == 1; }); });
    outer->start();
    inner->start();
    while (outer != nullptr && isReadable(outer->descriptor(), kWaitBound)) {
        outer->dispatch();
    }
    EXPECT_EQ(innerCalls, 1);
    EXPECT_EQ(outer, nullptr);
}

TEST_F(Callbacks, DestructorWaitsForACallbackOnAnotherThread) {
    auto session = startWithLamp();
    test::Gate gate;
    std::atomic<bool> hasReturned{false};
    lamp.onChange([&](const auto&) {
        gate.pass();
        std::this_thread::sleep_for(30ms);
        hasReturned = true;
    });
    session->start();
    ASSERT_TRUE(isReadable(session->descriptor(), kWaitBound));
    std::thread dispatcher([&dispatching = *session] { dispatching.dispatch(); });
    ASSERT_TRUE(gate.waitUntilReached());
    gate.open();
    session.reset();
    EXPECT_TRUE(hasReturned);
    dispatcher.join();
}

TEST_F(Callbacks, NoLockIsHeldWhileACallbackRuns) {
    const auto session = startWithLamp();
    const auto output = session->output<std::int32_t>("OUT");
    test::Gate gate;
    lamp.onChange([&](const auto&) { gate.pass(); });
    session->start();
    ASSERT_TRUE(isReadable(session->descriptor(), kWaitBound));
    std::thread dispatcher([&] { session->dispatch(); });
    ASSERT_TRUE(gate.waitUntilReached());
    // All of these return although the callback is still running.
    output.set(1);
    EXPECT_TRUE(session->flush(kWaitBound));
    session->output<float>("SECOND");
    EXPECT_TRUE(session->waitUntil(Link::READY, kWaitBound));
    session->onLink([](const auto&) {});
    session->onUpdate([](std::size_t) {});
    lamp.onChange([](const auto&) {});
    lamp.withdraw();
    EXPECT_EQ(session->parameters().size(), 2U);
    EXPECT_EQ(session->health().connects, 1U);
    EXPECT_TRUE(session->stop(kWaitBound));
    gate.open();
    dispatcher.join();
    EXPECT_TRUE(record.waitForPublished("OUT", "1"));
}

}  // namespace
}  // namespace com_tesk::session_test
