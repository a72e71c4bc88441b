#include <gtest/gtest.h>

#include <cerrno>
#include <future>

#include "tests/comms/BufferedPair.h"
#include "tests/support/BlackHole.h"

namespace com_tesk::test {
namespace {

using std::chrono::milliseconds;
using Bounds = CSCommsInterfaceTCPBuffered::Bounds;

constexpr std::size_t kMoreThanItHolds = 3U << 20U;

/// Long after an attempt with a bound of zero has given up.
constexpr milliseconds kWhile{200};

/// Far below the default bounds of connecting and of a silence.
constexpr double kFarBelowDefaults = 3.0;

Bounds allOf(milliseconds time) {
    Bounds bounds;
    bounds.silenceInFrame = time;
    bounds.connectTimeout = time;
    bounds.writeTimeout = time;
    return bounds;
}

CSCommsInterfaceTCP::Options withASmallSendBuffer() {
    CSCommsInterfaceTCP::Options options;
    options.sendBufferSize = 64U << 10U;
    return options;
}

std::string nameOfTime(const testing::TestParamInfo<milliseconds>& time) {
    return time.param == milliseconds::max()   ? "Max"
           : time.param == milliseconds::min() ? "Min"
           : time.param > milliseconds(0)      ? "ThousandYears"
                                               : "MinusOne";
}

class BufferedEndlessBound : public testing::TestWithParam<milliseconds> {};

INSTANTIATE_TEST_SUITE_P(Of, BufferedEndlessBound,
                         testing::Values(milliseconds::max(), milliseconds(std::chrono::hours(24 * 365 * 1000))),
                         nameOfTime);

TEST_P(BufferedEndlessBound, LetsAConnectGoOn) {
    const BlackHole hole;
    VisibleBuffered transport(allOf(GetParam()));
    auto opened =
        std::async(std::launch::async, [&] { return transport.openConnection(BlackHole::host(), hole.port()); });
    EXPECT_EQ(opened.wait_for(kWhile), std::future_status::timeout);
    transport.setInterrupted(true);
    EXPECT_FALSE(opened.get());
}

TEST_P(BufferedEndlessBound, LetsASilenceGoOn) {
    BufferedPair pair(allOf(GetParam()));
    pair.peer->send("00 00");
    EXPECT_EQ(readOnce(pair.transport, 4).result, -2);
    pair.peer->send("00 2A");
    EXPECT_EQ(readOnce(pair.transport, 4).bytes, "00 00 00 2A");
}

TEST_P(BufferedEndlessBound, LetsAWriteGoOn) {
    BufferedPair pair(allOf(GetParam()), withASmallSendBuffer());
    const Bytes frame = patternedBytes(kMoreThanItHolds);
    auto written = std::async(std::launch::async, [&] { return pair.transport.writeMessage(messageOfBytes(frame)); });
    EXPECT_EQ(written.wait_for(kWhile), std::future_status::timeout);
    EXPECT_TRUE(pair.peer->receive(frame.size()) == frame);
    EXPECT_EQ(written.get(), static_cast<int>(frame.size()));
}

class BufferedNegativeBound : public testing::TestWithParam<milliseconds> {};

INSTANTIATE_TEST_SUITE_P(Of, BufferedNegativeBound, testing::Values(milliseconds(-1), milliseconds::min()), nameOfTime);

TEST_P(BufferedNegativeBound, GivesUpAConnectThatHasToWait) {
    const BlackHole hole;
    VisibleBuffered transport(allOf(GetParam()));
    const StopwatchSince watch;
    EXPECT_FALSE(transport.openConnection(BlackHole::host(), hole.port()));
    EXPECT_LT(watch.seconds(), kFarBelowDefaults);
}

TEST_P(BufferedNegativeBound, EndsAFrameThatHasToWait) {
    Bounds bounds;
    bounds.silenceInFrame = GetParam();
    BufferedPair pair(bounds);
    pair.peer->send("01 02 03 04");
    EXPECT_EQ(readOnce(pair.transport, 4).bytes, "01 02 03 04") << "what is there is delivered";
    pair.peer->send("00 00");
    const ReadResult read = readOnce(pair.transport, 4);
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.error, ETIMEDOUT);
    EXPECT_LT(read.seconds, kFarBelowDefaults);
}

TEST_P(BufferedNegativeBound, EndsAWriteThatHasToWait) {
    Bounds bounds;
    bounds.writeTimeout = GetParam();
    BufferedPair pair(bounds, withASmallSendBuffer());
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(hex("01 02"))), 2) << "what fits is written";
    const StopwatchSince watch;
    EXPECT_EQ(pair.transport.writeMessage(messageOfBytes(Bytes(kMoreThanItHolds))), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_LT(watch.seconds(), kFarBelowDefaults);
}

}  // namespace
}  // namespace com_tesk::test
