// A thread holds the lock of the connection for longer than a thread that closes waits for it.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <ostream>
#include <string>

#include "tests/client/ProbedClient.h"
#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/engine/connection/HeldMutexes.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using TestClient = ClientOf<ConnectionEngine>;

/// An operation that takes the lock of the connection, or did.
struct Holder {
    const char* name;
    void (*run)(TestClient& client);

    // What a failed test prints.
    friend void PrintTo(const Holder& printed, std::ostream* stream) { *stream << printed.name; }
};

int open(TestClient& client) {
    return client.open(0x0100007FU, 55580, nullptr);
}

/// With a transport that is refused, because there is a connection.
void changeTransportInVain(TestClient& client) {
    const auto transport = std::make_unique<ProbeTransport>();
    client.changeCommsInterface(transport.get());
}

const Holder kHolders[] = {
    {"OpeningInVain", [](TestClient& client) { open(client); }},
    {"ChangingTheTransport", changeTransportInVain},
    {"GivingTheConnectionUp", [](TestClient& client) { client.probed->closeConnection(); }},
    {"StartingAConnection", [](TestClient& client) { client.probed->startConnection(); }},
    {"ChangingTheState", [](TestClient& client) { client.probed->changeState(CSClient::STATE_CONNECTING); }},
    {"AFailedWrite",
     [](TestClient& client) {
         client.probed->probe().failWrites(-1, EPIPE);
         client.sendMessage(messageOf(RawMessage::CONTROL, "01"));
     }},
};

class LockHeldWhileClosing : public testing::Test {
  protected:
    ~LockHeldWhileClosing() override {
        goOn.open();
        workerGoesOn.open();
        EndOnExit end(engine());
    }

    ConnectionEngine& engine() { return *client.probed; }

    /// Opens, with a worker that stays in its first read until it may go on.
    void openWithBusyWorker() {
        engine().probe().onRead = [this](unsigned int /*count*/) {
            isReading.open();
            workerGoesOn.wait();
        };
        ASSERT_EQ(open(client), 0);
        ASSERT_TRUE(isReading.wait());
    }

    /// Runs the operation on a thread that keeps the first lock of the engine that it takes, and closes meanwhile.
    void closeWhileHeldBy(void (*operation)(TestClient&)) {
        auto holding = std::async(std::launch::async, [this, operation] {
            {
                const HeldMutex held(engine().connectionPart(), [this] {
                    wasHeld = true;
                    isHeld.open();
                    goOn.wait();
                });
                operation(client);
            }
            isHeld.open();
        });
        ASSERT_TRUE(isHeld.wait());
        ASSERT_TRUE(wasHeld) << "the operation has not taken the lock";
        engine().forceCloseConnection();
        goOn.open();
        ASSERT_EQ(holding.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    }

    std::atomic<bool> wasHeld{false};
    Latch isReading;
    Latch workerGoesOn;
    Latch isHeld;
    Latch goOn;
    CapturedStreams captured;
    TestClient client{kReconnect | kSilent};
};

class HeldLock : public LockHeldWhileClosing, public testing::WithParamInterface<Holder> {};

TEST_P(HeldLock, LongerThanACloseWaitsDoesNotLoseTheClose) {
    workerGoesOn.open();
    openWithBusyWorker();
    closeWhileHeldBy(GetParam().run);
    EXPECT_TRUE(waitForState(engine(), CSClient::STATE_DISCONNECTED)) << engine().getState();
}

TEST_P(HeldLock, IsFollowedByTheCloseAlsoWhenTheWorkerIsBusy) {
    openWithBusyWorker();
    closeWhileHeldBy(GetParam().run);
    EXPECT_EQ(engine().getState(), CSClient::STATE_DISCONNECTING);
    workerGoesOn.open();
    EXPECT_TRUE(waitForState(engine(), CSClient::STATE_DISCONNECTED)) << engine().getState();
}

INSTANTIATE_TEST_SUITE_P(By, HeldLock, testing::ValuesIn(kHolders),
                         [](const testing::TestParamInfo<Holder>& tested) { return std::string(tested.param.name); });

TEST_F(LockHeldWhileClosing, ByOpeningDoesNotLoseTheClose) {
    closeWhileHeldBy([](TestClient& opened) { open(opened); });
    EXPECT_TRUE(waitForState(engine(), CSClient::STATE_DISCONNECTED)) << engine().getState();
}

}  // namespace
}  // namespace com_tesk::test
