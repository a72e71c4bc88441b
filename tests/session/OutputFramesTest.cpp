// Which frames outputs cause, and that sending never blocks.

#include <string>

#include "tests/session/FullSocket.h"
#include "tests/session/SessionFixtures.h"

namespace com_tesk::session_test {
namespace {

using OutputFrames = BatchTest;

TEST_F(OutputFrames, LoopWithOneFlushSendsOneFrameEachCycle) {
    startWith(20);
    constexpr int kCycles = 25;
    for (int cycle = 1; cycle <= kCycles; ++cycle) {
        setAll(cycle);
        session->flush();
        std::this_thread::sleep_for(2ms);
    }
    for (unsigned int cycle = 1; cycle <= kCycles; ++cycle) {
        const Request values = readRequest(*peer);
        ASSERT_EQ(values.code, Request::VALUES);
        ASSERT_EQ(values.records.size(), 20U);
        for (std::size_t i = 0; i < 20; ++i) {
            EXPECT_EQ(values.records[i].id, i + 1) << "in the order of the calls";
            EXPECT_EQ(values.records[i].value, cycle);
            EXPECT_EQ(values.records[i].flag, 1U);
        }
    }
    EXPECT_TRUE(peer->isQuietFor(30ms));
    EXPECT_EQ(session->health().framesOut, kCycles + 2U);
}

TEST_F(OutputFrames, FrameHasAtMostOneQueuedValueOfAnOutput) {
    startWith(1);
    const auto every = session->output<bool>("EVERY", Delivery::EVERY);
    answer(*peer, readRequest(*peer), 9);
    ASSERT_TRUE(session->waitConfirmed({every}, kWaitBound));
    every.set(true);
    every.set(false);
    every.set(true);
    outputs[0].set(5);
    session->flush();
    const Request first = readRequest(*peer);
    ASSERT_EQ(first.records.size(), 2U);
    EXPECT_EQ(first.records[0].value + first.records[1].value, 6U);
    for (const unsigned int expected : {0U, 1U}) {
        const Request next = readRequest(*peer);
        ASSERT_EQ(next.records.size(), 1U);
        EXPECT_EQ(next.records[0].id, 9U);
        EXPECT_EQ(next.records[0].value, expected);
    }
    EXPECT_TRUE(peer->isQuietFor(30ms));
}

TEST_F(OutputFrames, QueuedValueDoesNotReplaceTheOneOfTheNextFrame) {
    startWith(1);
    const auto every = session->output<std::int32_t>("EVERY", Delivery::EVERY);
    answer(*peer, readRequest(*peer), 9);
    ASSERT_TRUE(session->waitConfirmed({every}, kWaitBound));
    const FullSocket full;
    every.set(1);
    every.set(2);
    session->flush();
    ASSERT_TRUE(FullSocket::waitUntilRefused()) << "the socket has a part of the first frame";
    every.set(3);
    session->flush();
    FullSocket::release();
    for (unsigned int value = 1; value <= 3; ++value) {
        const Request values = readRequest(*peer);
        ASSERT_EQ(values.records.size(), 1U);
        ASSERT_EQ(values.records[0].value, value);
    }
}

TEST_F(OutputFrames, NothingBlocksWhileTheHostDoesNotRead) {
    startWith(2'000);
    fillSocket();
    const auto longest = [](const auto& action) {
        Took result;
        for (int i = 0; i < 20; ++i) {
            result = std::max(result, timeOf(action));
        }
        return result;
    };
    EXPECT_LT(longest([&] { session->flush(); }), busy(30ms));
    EXPECT_LT(longest([&] { setAll(1); }), busy(30ms));
    EXPECT_LT(longest([&] { session->output<bool>("LATER"); }), busy(30ms));
    EXPECT_LT(longest([&] { session->health(); }), busy(30ms));
    fillSocket();  // The system may have moved bytes to the host's side meanwhile.
    const auto waited = timeOf([&] { EXPECT_FALSE(session->flush(60ms)); });
    EXPECT_GE(waited, 60ms);
    EXPECT_LT(waited, 60ms + busy(60ms));
}

TEST_F(OutputFrames, RestOfAFrameDoesNotReachTheNextConnection) {
    options.retry = 1ms;
    startWith(3'000);
    fillSocket();
    peer.reset();
    const auto next = acceptAndAnswer(host, 2);
    EXPECT_TRUE(session->waitUntil(Link::READY, kWaitBound));
    EXPECT_EQ(readRequest(*next).records.size(), outputs.size()) << "the newest values";
}

TEST_F(OutputFrames, ValuesStagedDuringAFrameLeaveInOneFrame) {
    startWith(3'000);
    const auto last = static_cast<unsigned int>(fillSocket());
    const std::uint64_t sent = session->health().framesOut;
    for (unsigned int more = 1; more <= 4; ++more) {
        setAll(static_cast<std::int32_t>(last + more));
        session->flush();
    }
    ASSERT_EQ(session->health().framesOut, sent) << "the host has not read";
    // The frames that have left, after two requests, and one more.
    unsigned int before = 0;
    for (std::uint64_t frame = 2; frame <= sent; ++frame) {
        const Request values = readRequest(*peer);
        ASSERT_EQ(values.code, Request::VALUES);
        ASSERT_EQ(values.records.size(), outputs.size());
        const unsigned int value = values.records[0].value;
        ASSERT_GT(value, before);
        for (const Request::Record& one : values.records) {
            ASSERT_EQ(one.value, value);
        }
        before = value;
        ASSERT_EQ(value == last + 4, frame == sent) << "what was replaced does not leave";
    }
    EXPECT_TRUE(peer->isQuietFor(30ms));
}

TEST_F(OutputFrames, HostThatDoesNotReadIsGivenUpAfterTheBound) {
    options.bounds.writeTimeout = 100ms;
    options.answerTimeout = 1h;  // The next connection, which the host does not accept, is no further failure.
    startWith(2'000);
    fillSocket();
    EXPECT_TRUE(waitUntil([&] { return session->health().losses == 1; }));
    EXPECT_EQ(session->health().lastCause, Cause::SILENT);
}

}  // namespace
}  // namespace com_tesk::session_test
