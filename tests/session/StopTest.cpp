// Stopping: at once in every situation, or after what was set has arrived.

#include <dirent.h>

#include <atomic>
#include <string>

#include "tests/session/NamedHosts.h"
#include "tests/session/SessionFixtures.h"
#include "tests/support/BlackHole.h"

namespace com_tesk::session_test {
namespace {

constexpr Milliseconds kPromised{50};

/// Returns the number of entries of a directory of this process: "task" has its threads, "fd" its descriptors.
std::size_t entriesOf(const std::string& directory) {
    std::size_t count = 0;
    DIR* const open = opendir(("/proc/self/" + directory).c_str());
    while (readdir(open) != nullptr) {
        ++count;
    }
    closedir(open);
    return count;
}

class Stopping : public SessionTest {
  protected:
    /// Compares the times of `stop` and of the destructor, in a situation that `prepare` brings about.
    void endsAtOnce(const Session::Options& sessionOptions, const std::function<void(Session&)>& prepare) {
        Session stopped(sessionOptions);
        stopped.start();
        prepare(stopped);
        EXPECT_LT(timeOf([&] { stopped.stop(); }), busy(kPromised));
        EXPECT_EQ(stopped.link(), Link::STOPPED);
        EXPECT_LT(timeOf([&] { stopped.stop(); }), busy(kPromised)) << "a second time";
        auto destroyed = std::make_unique<Session>(sessionOptions);
        destroyed->start();
        prepare(*destroyed);
        EXPECT_LT(timeOf([&] { destroyed.reset(); }), busy(kPromised));
    }

    ScriptedHost host;
};

using StoppingBatch = BatchTest;

TEST_F(Stopping, EndsAtOnceWithoutAStart) {
    Session session(options);
    EXPECT_LT(timeOf([&] { session.stop(); }), busy(kPromised));
    EXPECT_TRUE(session.stop(1s));
}

TEST_F(Stopping, EndsAtOnceWhileConnecting) {
    const test::BlackHole nothing;
    endsAtOnce(optionsFor(nothing.port()), [](Session& session) {
        EXPECT_TRUE(session.waitUntil(Link::CONNECTING, kWaitBound));
        std::this_thread::sleep_for(20ms);
    });
}

TEST_F(Stopping, EndsAtOnceBetweenAttempts) {
    options.retry = 1h;
    endsAtOnce(optionsFor(test::refusingPort()),
               [](Session& session) { EXPECT_TRUE(waitUntil([&] { return session.health().failedAttempts == 1; })); });
}

TEST_F(Stopping, EndsAtOnceWhileANameIsLookedUp) {
    options.host = kSlowName;
    endsAtOnce(optionsFor(host.port()), [](Session&) { EXPECT_TRUE(slowNameGate().waitUntilReached()); });
    slowNameGate().open();
}

TEST_F(Stopping, EndsAtOnceWhenReady) {
    LoopbackHost good(record.options());
    endsAtOnce(optionsFor(good.port()),
               [](Session& session) { EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound)); });
    EXPECT_TRUE(good.waitForClients(0, kWaitBound));
}

TEST_F(Stopping, EndsAtOnceWithAPeerThatSaysNothing) {
    std::vector<std::unique_ptr<Peer>> peers;
    endsAtOnce(optionsFor(host.port()), [&](Session& session) {
        peers.push_back(host.accept());
        EXPECT_TRUE(session.waitUntil(Link::CONNECTED, kWaitBound));
    });
}

TEST_F(Stopping, EndsAtOnceInTheMiddleOfAFrame) {
    std::vector<std::unique_ptr<Peer>> peers;
    endsAtOnce(optionsFor(host.port()), [&](Session& session) {
        peers.push_back(acceptAndAnswer(host, 1));
        peers.back()->send("00 00 10 00 00 00 00 20 00 00 00 00 00 00");
        EXPECT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    });
}

TEST_F(StoppingBatch, EndsAtOnceWithAHostThatNeverReads) {
    startWith(2'000);
    fillSocket();
    EXPECT_LT(timeOf([&] { session->stop(); }), busy(kPromised));
    EXPECT_EQ(session->link(), Link::STOPPED);
}

TEST_F(Stopping, StopWithoutATimeEndsAStopThatWaits) {
    Session session(optionsFor(test::refusingPort()));
    session.output<float>("OUT").set(1);
    session.start();
    std::atomic<bool> isPatient{false};
    std::thread patient([&] {
        isPatient = true;
        EXPECT_FALSE(session.stop(kWaitBound));
    });
    waitUntil([&] { return isPatient.load(); });
    std::this_thread::sleep_for(30ms);
    EXPECT_LT(timeOf([&] { session.stop(); }), busy(kPromised));
    patient.join();
}

TEST_F(StoppingBatch, StopWithATimeDeliversALargeBatchToASlowReader) {
    startWith(3'000);
    std::size_t received = 0;
    std::thread reader([&] {
        std::size_t part = 0;
        do {
            part = peer->receive(4'096).size();
            received += part;
            std::this_thread::sleep_for(1ms);
        } while (part == 4'096);
    });
    const std::uint64_t before = session->health().bytesOut;
    for (std::int32_t value = 1; value <= 20; ++value) {
        setAll(value);
        session->flush();
        peer->send(test::hexFrame(test::update(1, {test::updated(1, 1, "00 00 00 01")})));
    }
    EXPECT_TRUE(session->stop(kWaitBound));
    reader.join();
    const Health health = session->health();
    EXPECT_EQ(received, health.bytesOut - before);
    EXPECT_EQ(health.valuesOut + health.overwritten, 20U * 3'000U) << "nothing is staged any more";
}

TEST_F(Stopping, StopWithATimeWaitsForConnectionAndConfirmation) {
    const unsigned int port = host.port();
    host.stopListening();
    options.retry = 1ms;
    Session session(optionsFor(port));
    session.output<std::int32_t>("ALT").set(9);
    const auto button = session.output<bool>("BUTTON", Delivery::EVERY);
    button.set(true);
    session.start();
    std::thread late([&] {
        std::this_thread::sleep_for(30ms);
        host.listenAgain();
        const auto peer = acceptAndAnswer(host, 1);
        const Request outputRequest = readRequest(*peer);
        std::this_thread::sleep_for(30ms);
        answer(*peer, outputRequest);
        EXPECT_EQ(readRequest(*peer).records.size(), 2U);
        EXPECT_TRUE(peer->waitForEnd());
    });
    EXPECT_LT(timeOf([&] { EXPECT_TRUE(session.stop(kWaitBound)); }), 60ms + busy(200ms));
    late.join();
}

TEST_F(StoppingBatch, StopWithATimeReturnsFalseWhenTheHostDoesNotRead) {
    startWith(2'000);
    fillSocket();
    const auto took = timeOf([&] { EXPECT_FALSE(session->stop(100ms)); });
    EXPECT_GE(took, 100ms);
    EXPECT_LT(took, 100ms + busy(kPromised));
}

TEST_F(Stopping, StopWithATimeReturnsFalseWithoutAConnection) {
    Session session(optionsFor(test::refusingPort()));
    session.output<float>("OUT").set(1);
    session.start();
    const auto took = timeOf([&] { EXPECT_FALSE(session.stop(60ms)); });
    EXPECT_GE(took, 60ms);
    EXPECT_LT(took, 60ms + busy(kPromised));
}

TEST_F(Stopping, StopWithATimeReturnsAtOnceWhenNothingIsStaged) {
    LoopbackHost good(record.options());
    Session session(optionsFor(good.port()));
    session.output<float>("OUT");
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    EXPECT_LT(timeOf([&] { EXPECT_TRUE(session.stop(kWaitBound)); }), busy(kPromised));
}

TEST_F(Stopping, StagedValuesStayForTheNextStart) {
    LoopbackHost good(record.options());
    options.gather = 1h;
    Session session(optionsFor(good.port()));
    const auto altitude = session.output<std::int32_t>("ALT");
    session.start();
    ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
    altitude.set(4);
    session.stop();
    EXPECT_EQ(record.published("ALT"), "");
    session.start();
    EXPECT_TRUE(record.waitForPublished("ALT", "4"));
    EXPECT_EQ(session.health().losses, 0U);
}

TEST_F(Stopping, ASessionHasTwoThreadsAndLeavesNothing) {
    LoopbackHost good(record.options());
    { const Session warmUp(optionsFor(good.port())); }
    const std::size_t threads = entriesOf("task");
    const std::size_t descriptors = entriesOf("fd");
    for (int i = 0; i < 5; ++i) {
        Session session(optionsFor(good.port()));
        EXPECT_EQ(entriesOf("task"), threads);
        session.start();
        session.start();
        ASSERT_TRUE(session.waitUntil(Link::READY, kWaitBound));
        EXPECT_EQ(entriesOf("task"), threads + 2);
        session.stop();
        EXPECT_TRUE(waitUntil([&] { return entriesOf("task") == threads; }));
    }
    EXPECT_TRUE(good.waitForClients(0, kWaitBound));
    EXPECT_TRUE(waitUntil([&] { return entriesOf("fd") == descriptors; }));
}

}  // namespace
}  // namespace com_tesk::session_test
