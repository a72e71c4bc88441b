// Stopping with a time: it waits until the host's system has acknowledged everything, and nothing leaves meanwhile.

#include <future>

#include "tests/session/FullSocket.h"
#include "tests/session/HeldAcknowledgement.h"
#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

class AcknowledgedStop : public BatchTest {
  protected:
    /// Starts a session, and sends the value 1.
    void sendOne() {
        startWith(1);
        outputs[0].set(1);
        ASSERT_TRUE(session->flush(kWaitBound));
    }

    /// As `sendOne`, and begins a stop, which waits for the acknowledgement of the value.
    void beginStop() {
        ASSERT_NO_FATAL_FAILURE(sendOne());
        stopping = std::async(std::launch::async, [this] { return session->stop(kWaitBound); });
        ASSERT_TRUE(isStillWaiting());
    }

    /// True when the stop queries the acknowledgement twice more, so that it has also tried to send in between.
    bool isStillWaiting() {
        const int before = held.queries();
        const auto isOver = [this] { return session->link() == Link::STOPPED; };
        return waitUntil([&] { return held.queries() >= before + 2 || isOver(); }) && !isOver();
    }

    /// Starts the session again, and confirms its output.
    void startAgain() {
        session->start();
        peer = host.accept();
        ASSERT_NE(peer, nullptr);
        for (const unsigned int code : {Request::VERSION, Request::OUTPUTS}) {
            const Request request = readRequest(*peer);
            ASSERT_EQ(request.code, code);
            answer(*peer, request);
        }
        ASSERT_TRUE(session->waitUntil(Link::READY, kWaitBound));
    }

    /// Checks that the next frame has exactly this value.
    void expectValue(unsigned int value) {
        const Request values = readRequest(*peer);
        ASSERT_EQ(values.code, Request::VALUES);
        ASSERT_EQ(values.records.size(), 1U);
        EXPECT_EQ(values.records[0].value, value);
    }

    std::future<bool> stopping;  ///< Ends after `held` is destroyed.
    HeldAcknowledgement held;
};

TEST_F(AcknowledgedStop, KeepsTheConnectionUntilTheAcknowledgement) {
    ASSERT_NO_FATAL_FAILURE(beginStop());
    expectValue(1);
    EXPECT_TRUE(peer->waitForEnd()) << "the host sees that nothing follows";
    const std::uint64_t frames = session->health().framesIn;
    peer->send(test::hexFrame(test::update(1, {test::updated(1, 1, "00 00 00 01")})));
    EXPECT_TRUE(waitUntil([&] { return session->health().framesIn == frames + 1; })) << "the session still receives";
    EXPECT_TRUE(isStillWaiting());
    EXPECT_EQ(session->link(), Link::READY);
    held.release();
    EXPECT_TRUE(stopping.get());
    EXPECT_EQ(session->link(), Link::STOPPED);
}

TEST_F(AcknowledgedStop, ReturnsFalseWhenTheTimeEndsFirst) {
    ASSERT_NO_FATAL_FAILURE(sendOne());
    const auto took = timeOf([&] { EXPECT_FALSE(session->stop(60ms)); });
    EXPECT_GE(took, 60ms);
    EXPECT_EQ(session->link(), Link::STOPPED);
    expectValue(1);
}

TEST_F(AcknowledgedStop, ReturnsFalseWhenTheHostClosesBeforeIt) {
    ASSERT_NO_FATAL_FAILURE(beginStop());
    expectValue(1);
    peer->close();
    EXPECT_FALSE(stopping.get());
}

TEST_F(AcknowledgedStop, ValueSetMeanwhileLeavesAfterTheNextStart) {
    ASSERT_NO_FATAL_FAILURE(beginStop());
    expectValue(1);
    const std::uint64_t sent = session->health().valuesOut;
    outputs[0].set(2);
    session->flush();
    EXPECT_TRUE(isStillWaiting());
    EXPECT_EQ(session->health().valuesOut, sent);
    held.release();
    EXPECT_TRUE(stopping.get()) << "the first value is acknowledged";
    EXPECT_EQ(session->health().valuesOut, sent);
    EXPECT_TRUE(peer->receive(1).empty()) << "the connection ends without another byte";
    EXPECT_FALSE(session->stop(0ms)) << "the second value is staged";
    ASSERT_NO_FATAL_FAILURE(startAgain());
    expectValue(2);
}

TEST_F(AcknowledgedStop, NextStopSendsWhatIsStagedThen) {
    ASSERT_NO_FATAL_FAILURE(beginStop());
    held.release();
    EXPECT_TRUE(stopping.get());
    ASSERT_NO_FATAL_FAILURE(startAgain());
    expectValue(1);  // Each connection begins with the newest values.
    outputs[0].set(2);
    stopping = std::async(std::launch::async, [this] { return session->stop(kWaitBound); });
    expectValue(2);
    EXPECT_TRUE(stopping.get());
}

TEST_F(AcknowledgedStop, EndsSoonAfterTheLastValueHasLeftWithoutAFlush) {
    options.gather = 1h;  // Only the stop sends the value.
    startWith(1);
    outputs[0].set(1);
    held.release();
    EXPECT_LT(timeOf([&] { EXPECT_TRUE(session->stop(kWaitBound)); }), busy(150ms));
    expectValue(1);
}

TEST_F(AcknowledgedStop, ReturnsFalseForAValueThatLeavesDuringTheStop) {
    startWith(1);
    outputs[0].set(1);
    EXPECT_FALSE(session->stop(60ms));
}

TEST_F(AcknowledgedStop, ReturnsFalseWhenAPartOfAFrameIsLeft) {
    startWith(1);
    FullSocket socket;
    outputs[0].set(1);
    session->flush();
    ASSERT_TRUE(socket.waitUntilRefused());
    EXPECT_FALSE(session->stop(60ms));
}

TEST_F(AcknowledgedStop, StopRightAfterTheNextStartDoesNotCountTheFirst) {
    ASSERT_NO_FATAL_FAILURE(beginStop());
    held.release();
    EXPECT_TRUE(stopping.get());
    outputs[0].set(2);
    session->start();
    EXPECT_FALSE(session->stop(60ms)) << "no value has left";
    EXPECT_EQ(session->health().valuesOut, 1U);
}

}  // namespace
}  // namespace com_tesk::session_test
