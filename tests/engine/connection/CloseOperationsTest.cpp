#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <future>
#include <ostream>
#include <string>

#include "tests/client/CountedSleeps.h"
#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

/// One operation in one state, and all that it does.
struct Case {
    const char* name;
    unsigned int options;
    CSClient::State before;
    const char* states;
    CSClient::State after;
    bool keepsServer;
    bool sleeps;
    const char* out;

    // What a failed test prints.
    friend void PrintTo(const Case& printed, std::ostream* stream) { *stream << printed.name; }
};

std::string nameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

class OperationInState : public testing::TestWithParam<Case> {
  protected:
    OperationInState() {
        engine.pretendAddress(0x0100007F, 4711);
        engine.pretendState(GetParam().before);
        engine.addCallbackInterface(&callbacks);
    }

    void expectOutcome(double seconds) {
        EXPECT_EQ(callbacks.states(), GetParam().states);
        EXPECT_EQ(engine.getState(), GetParam().after);
        EXPECT_EQ(engine.getServerIPAddress(), GetParam().keepsServer ? "127.0.0.1" : "0.0.0.0");
        EXPECT_EQ(engine.getServerPort(), GetParam().keepsServer ? 4711U : 0U);
        if (GetParam().sleeps) {
            EXPECT_TRUE(isOneSecond(seconds)) << seconds;
        } else {
            EXPECT_LT(seconds, 0.9);
        }
        EXPECT_EQ(captured.out(), GetParam().out);
        EXPECT_EQ(captured.err(), "");
        EXPECT_EQ(engine.probe().closeCount(), 0) << "the worker closes the transport";
    }

    CapturedStreams captured;
    RecordingCallbacks callbacks;
    ConnectionEngine engine{GetParam().options};
};

using CloseConnection = OperationInState;

TEST_P(CloseConnection, DoesWhatTheStateAsksFor) {
    const Stopwatch stopwatch;
    engine.closeConnection();
    expectOutcome(stopwatch.seconds());
}

constexpr auto kState0 = CSClient::STATE_DISCONNECTED;
constexpr auto kState1 = CSClient::STATE_CONNECTING;
constexpr auto kState2 = CSClient::STATE_CONNECTED;
constexpr auto kState3 = CSClient::STATE_DISCONNECTING;
constexpr auto kState4 = CSClient::STATE_READY;
constexpr auto kState5 = CSClient::STATE_RECONNECTING;

INSTANTIATE_TEST_SUITE_P(Without, CloseConnection,
                         testing::Values(Case{"ReconnectIn0", 0, kState0, "", kState0, true, false, ""},
                                         Case{"ReconnectIn1", 0, kState1, "1->3", kState3, false, false, ""},
                                         Case{"ReconnectIn2", 0, kState2, "2->3", kState3, false, false, ""},
                                         Case{"ReconnectIn3", 0, kState3, "", kState3, true, false, ""},
                                         Case{"ReconnectIn4", 0, kState4, "4->3", kState3, false, false, ""},
                                         Case{"ReconnectIn5", 0, kState5, "5->3", kState3, false, false, ""}),
                         nameOf);

INSTANTIATE_TEST_SUITE_P(With, CloseConnection,
                         testing::Values(Case{"ReconnectIn0", kReconnect, kState0, "", kState0, true, false, ""},
                                         Case{"ReconnectIn1", kReconnect, kState1, "", kState1, true, true, ""},
                                         Case{"ReconnectIn2", kReconnect, kState2, "2->1", kState1, true, true, ""},
                                         Case{"ReconnectIn3", kReconnect, kState3, "", kState3, true, false, ""},
                                         Case{"ReconnectIn4", kReconnect, kState4, "4->5 5->1", kState1, true, true,
                                              "Attempting to reconnect...\n"},
                                         Case{"ReconnectIn5", kReconnect, kState5, "", kState5, true, true, ""},
                                         Case{"ReconnectInSilenceIn4", kReconnect | kSilent, kState4, "4->5 5->1",
                                              kState1, true, true, ""}),
                         nameOf);

using ForceCloseConnection = OperationInState;

TEST_P(ForceCloseConnection, RequestsTheEndWithoutSleeping) {
    const Stopwatch stopwatch;
    engine.forceCloseConnection();
    expectOutcome(stopwatch.seconds());
}

INSTANTIATE_TEST_SUITE_P(WithReconnect, ForceCloseConnection,
                         testing::Values(Case{"In0", kReconnect, kState0, "", kState0, true, false, ""},
                                         Case{"In1", kReconnect, kState1, "1->3", kState3, false, false, ""},
                                         Case{"In2", kReconnect, kState2, "2->3", kState3, false, false, ""},
                                         Case{"In3", kReconnect, kState3, "", kState3, true, false, ""},
                                         Case{"In4", kReconnect, kState4, "4->3", kState3, false, false, ""},
                                         Case{"In5", kReconnect, kState5, "5->3", kState3, false, false, ""}),
                         nameOf);

INSTANTIATE_TEST_SUITE_P(WithoutReconnect, ForceCloseConnection,
                         testing::Values(Case{"In0", 0, kState0, "", kState0, true, false, ""},
                                         Case{"In1", 0, kState1, "1->3", kState3, false, false, ""},
                                         Case{"In4", 0, kState4, "4->3", kState3, false, false, ""}),
                         nameOf);

TEST(ClosingWithReconnect, SleepsWithoutAnyLock) {
    const LongPauses pauses;
    ConnectionEngine engine(kReconnect | kSilent);
    RecordingCallbacks callbacks;
    engine.connect();
    engine.addCallbackInterface(&callbacks);
    std::atomic<bool> closed{false};
    const auto closing = std::async(std::launch::async, [&] {
        engine.closeConnection();
        closed = true;
    });
    ASSERT_TRUE(callbacks.waitFor("state 5->1"));
    const CSClient::OutputDef output{"A", CSClient::TYPE_INT};
    EXPECT_EQ(engine.registerOutputParameters(&output, 1), 0);
    EXPECT_EQ(engine.removeCallbackInterface(&callbacks), 0);
    EXPECT_FALSE(closed);
    engine.forceCloseConnection();
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
}

extern "C" void ignoreSignal(int /*number*/) {}

TEST(ClosingWithReconnect, SignalsDoNotShortenTheSecond) {
    struct sigaction action {};
    struct sigaction previous {};
    action.sa_handler = ignoreSignal;
    ASSERT_EQ(sigaction(SIGUSR1, &action, &previous), 0);
    ConnectionEngine engine(kReconnect | kSilent);
    engine.pretendState(CSClient::STATE_CONNECTING);
    std::atomic<bool> closed{false};
    const pthread_t sleeper = pthread_self();
    auto signalling = std::async(std::launch::async, [&] {
        int sent = 0;
        while (!closed) {
            pthread_kill(sleeper, SIGUSR1);
            ++sent;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return sent;
    });
    const Stopwatch stopwatch;
    engine.closeConnection();
    const double seconds = stopwatch.seconds();
    closed = true;
    EXPECT_GE(signalling.get(), 3);
    EXPECT_TRUE(isOneSecond(seconds)) << seconds;
    EXPECT_EQ(sigaction(SIGUSR1, &previous, nullptr), 0);
}

}  // namespace
}  // namespace com_tesk::test
