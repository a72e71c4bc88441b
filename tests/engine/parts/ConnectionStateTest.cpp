#include "engine/ConnectionState.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

#include "tests/support/OpenEngine.h"

namespace com_tesk::test {
namespace {

/// Records its notifications: "4->3", "interrupted", "goes on".
class RecordingObserver : public ConnectionState::Observer {
  public:
    std::string log;

    void stateChanged(CSClient::State oldState, CSClient::State newState) override {
        log += std::to_string(oldState) + "->" + std::to_string(newState) + " ";
    }
    void setInterrupted(bool isInterrupted) override { log += isInterrupted ? "interrupted " : "goes on "; }
};

class ConnectionStateAlone : public testing::Test {
  protected:
    explicit ConnectionStateAlone(unsigned int options = CSClient::OPTION_SILENT) : connection(observer, options) {
        // Pauses between two attempts take no time.
        PartAccess::retryPause(connection).interrupt();
    }

    void change(CSClient::State state) {
        connection.underLock([&] { PartAccess::change(connection, state); });
        observer.log.clear();
    }

    RecordingObserver observer;
    ConnectionState connection;
};

class ReconnectingStateAlone : public ConnectionStateAlone {
  protected:
    ReconnectingStateAlone() : ConnectionStateAlone(CSClient::OPTION_AUTO_RECONNECT | CSClient::OPTION_SILENT) {}
};

TEST_F(ConnectionStateAlone, NotifiesOnceOfAChange) {
    EXPECT_EQ(connection.current(), CSClient::STATE_DISCONNECTED);
    EXPECT_NE(connection.number(), kNoConnection);
    EXPECT_FALSE(connection.isConnected());
    EXPECT_EQ(observer.log, "");
    connection.underLock([this] {
        PartAccess::change(connection, CSClient::STATE_CONNECTING);
        PartAccess::change(connection, CSClient::STATE_CONNECTING);
    });
    EXPECT_EQ(observer.log, "0->1 ");
}

TEST_F(ConnectionStateAlone, ClosesUnlessItIsClosedOrClosing) {
    for (const CSClient::State state :
         {CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED, CSClient::STATE_READY, CSClient::STATE_RECONNECTING}) {
        change(state);
        connection.close();
        EXPECT_EQ(observer.log, std::to_string(state) + "->3 interrupted ");
    }
    for (const CSClient::State state : {CSClient::STATE_DISCONNECTED, CSClient::STATE_DISCONNECTING}) {
        change(state);
        connection.close();
        EXPECT_EQ(observer.log, "");
    }
}

TEST_F(ConnectionStateAlone, AFailureWithoutReconnectClosesAndErasesTheAddress) {
    PartAccess::serverAddress(connection) = 1;
    PartAccess::serverPort(connection) = 2;
    change(CSClient::STATE_READY);
    connection.closeOrReconnect();
    EXPECT_EQ(observer.log, "4->3 interrupted ");
    EXPECT_EQ(connection.address(), 0U);
    EXPECT_EQ(connection.port(), 0U);
}

TEST_F(ReconnectingStateAlone, AFailureBeginsTheNextAttemptAndKeepsTheAddress) {
    PartAccess::serverAddress(connection) = 1;
    change(CSClient::STATE_READY);
    connection.closeOrReconnect();
    EXPECT_EQ(observer.log, "4->5 5->1 ");
    EXPECT_EQ(connection.address(), 1U);
    change(CSClient::STATE_CONNECTED);
    connection.closeOrReconnect();
    EXPECT_EQ(observer.log, "2->1 ");
    change(CSClient::STATE_READY);
    connection.closeOrReconnect(connection.number() + 1);
    EXPECT_EQ(observer.log, "");
}

TEST_F(ConnectionStateAlone, NumbersEachConnectionButNoAttempt) {
    PartAccess::connectionNumber(connection) = 0xFFFFFFFF;
    ConnectionState::Attempt attempt;
    change(CSClient::STATE_DISCONNECTING);
    EXPECT_FALSE(connection.isAttemptWanted(attempt));
    EXPECT_FALSE(connection.enterConnected());
    EXPECT_EQ(connection.number(), 0xFFFFFFFF);
    change(CSClient::STATE_CONNECTING);
    EXPECT_TRUE(connection.enterConnected());
    EXPECT_EQ(connection.number(), kNoConnection + 1) << "never the number of none";
    EXPECT_EQ(observer.log, "1->2 ");
}

TEST_F(ConnectionStateAlone, ClosesAfterTheLockWhenItsHolderHasDeferredIt) {
    change(CSClient::STATE_READY);
    EXPECT_FALSE(connection.deferClose(connection.number())) << "without the lock";
    connection.underLock([this] {
        EXPECT_TRUE(connection.deferClose(connection.number()));
        EXPECT_TRUE(connection.hasDeferredClose());
        EXPECT_EQ(observer.log, "");
    });
    EXPECT_EQ(observer.log, "4->3 interrupted ");
    EXPECT_FALSE(connection.hasDeferredClose());
}

TEST_F(ConnectionStateAlone, LeavesADeferredCloseToTheWorkerAfterAnException) {
    change(CSClient::STATE_READY);
    EXPECT_THROW(connection.underLock([this] {
        connection.deferClose(connection.number());
        throw std::bad_alloc();
    }),
                 std::bad_alloc);
    EXPECT_TRUE(connection.isAbandoned(connection.number()));
    EXPECT_EQ(observer.log, "");
    connection.closeAsLeft();
    EXPECT_EQ(observer.log, "4->3 interrupted ");
    EXPECT_FALSE(connection.isAbandoned(connection.number()));
}

TEST_F(ConnectionStateAlone, ClosesAfterTheChangeInProgressOnRequest) {
    change(CSClient::STATE_CONNECTED);
    connection.underLock([this] {
        connection.requestClose();
        EXPECT_EQ(observer.log, "interrupted ");
        PartAccess::change(connection, CSClient::STATE_READY);
    });
    EXPECT_EQ(observer.log, "interrupted 2->4 4->3 interrupted ");
}

TEST_F(ConnectionStateAlone, RunsAStepWhileDisconnectedOnlyThen) {
    bool isRun = false;
    EXPECT_TRUE(connection.whileDisconnected([&isRun] { isRun = true; }));
    EXPECT_TRUE(isRun);
    change(CSClient::STATE_CONNECTING);
    EXPECT_FALSE(connection.whileDisconnected([] { ADD_FAILURE(); }));
}

}  // namespace
}  // namespace com_tesk::test
