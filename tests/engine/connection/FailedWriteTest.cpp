#include "tests/engine/connection/ConnectionFixtures.h"

namespace com_tesk::test {
namespace {

class FailedWrite : public ConnectionTest {
  protected:
    void registerBoth() {
        EXPECT_EQ(engine->registerInputs({input("I")}), 0);
        EXPECT_EQ(engine->registerOutputs({output("O", CSClient::TYPE_INT)}), 0);
    }

    void createWithBoth(unsigned int optionFlags) {
        create(optionFlags);
        registerBoth();
    }

    /// Makes the write with this number fail, counted from 1.
    void failWriteNumber(int number) {
        transport().onWrite = [this, number, count = 0]() mutable {
            if (++count == number) {
                transport().failWrites(-1, EPIPE);
            }
        };
    }
};

TEST_F(FailedWrite, IsReportedAndEndsTheConnection) {
    struct Row {
        int result;
        int error;
        unsigned int optionFlags;
        const char* line;
    };
    for (const Row& row : {Row{-1, EPIPE, 0, kBrokenPipeLine},
                           {-1, ECONNRESET, 0, "Error writing to server (104) \n"},
                           {33, EAGAIN, 0, "Error writing to server (11) \n"},
                           {0, 0, 0, "Error writing to server (0) \n"},
                           {-1, EPIPE, kSilent, ""},
                           {-1, EPIPE, kReconnect, kBrokenPipeLine},
                           {-1, EPIPE, kReconnect | kSilent, ""}}) {
        SCOPED_TRACE(std::to_string(row.result) + row.line);
        const bool isReconnecting = (row.optionFlags & kReconnect) != 0;
        connect(row.optionFlags);
        int writes = 0;
        transport().onWrite = [&writes] { ++writes; };
        transport().failWrites(row.result, row.error);
        const Stopwatch stopwatch;
        EXPECT_EQ(engine->sendMessage(messageOf(RawMessage::DATA, "01 02")), 2U);
        const double seconds = stopwatch.seconds();
        EXPECT_TRUE(isReconnecting ? isOneSecond(seconds) : seconds < kNoPause) << seconds;
        EXPECT_EQ(engine->sendMessage(messageOf(RawMessage::DATA, "01 02")), 1U) << "not connected";
        EXPECT_EQ(writes, 1);
        expectEvents(isReconnecting ? "4->5 5->1" : "4->3", row.line,
                     row.optionFlags == kReconnect ? kReconnectLine : "");
        EXPECT_EQ(engine->getServerIPAddress(), isReconnecting ? "127.0.0.1" : "0.0.0.0");
        EXPECT_EQ(engine->getServerPort(), isReconnecting ? 55580U : 0U);
    }
}

TEST_F(FailedWrite, IsFollowedByRegistrationsAndValuesOnTheNextConnection) {
    connect();
    transport().failWrites(-1, EPIPE);
    EXPECT_EQ(engine->registerInputs({input("I")}), 2);
    EXPECT_EQ(engine->registerOutputs({output("O")}), 0) << "there is no connection any more";
    engine->connect();
    transport().failWrites(-1, EPIPE);
    EXPECT_EQ(engine->publish({floatParameter("O", 1.0F)}), 2);
    EXPECT_EQ(engine->outputTable(), Strings{"O type 1 waiting published 3F800000"});
    const Strings before = engine->requests();
    engine->ignoreRequestsSoFar();
    engine->connect();
    EXPECT_EQ(engine->requests(), Strings(before.begin() + 1, before.end()));
    engine->ignoreRequestsSoFar();
    engine->receive(outputsConfirmed({{9, "O"}}));
    EXPECT_EQ(engine->requests(), Strings{"04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01 "
                                          "00 00 00 09 00 00 00 00 3F 80 00 00"});
}

TEST_F(FailedWrite, AfterTheEndOfTheConnectionChangesNothing) {
    connect(0);
    transport().onWrite = [this] { engine->forceCloseConnection(); };
    transport().failWrites(-1, EPIPE);
    EXPECT_EQ(sendControl(*engine), 2U);
    expectEvents("4->3", kBrokenPipeLine);
}

/// The version request (1), the input registration (2) or the output registration (3) fails.
class FailedRequestOnReady : public FailedWrite, public testing::WithParamInterface<int> {
  protected:
    /// Expects the first of these three requests, and nothing after them.
    void expectRequests(int count) const {
        const Strings all{
            "04 02 7F FF 00 00 00 14 00 7F 00 06 00 01 00 00 00 00 00 00",
            "04 02 7F FF 00 00 00 40 00 7F 00 01 00 01 00 00 00 00 00 01 "
            "00 00 2E E0 00 00 2E E0 00 00 00 00 " +
                hexField("I"),
            "04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01 00 00 04 B0 00 00 00 01 " + hexField("O")};
        EXPECT_EQ(engine->requests(), Strings(all.begin(), all.begin() + count));
    }
};

TEST_P(FailedRequestOnReady, WithoutReconnectClosesOnceAfterTheStateChange) {
    createWithBoth(0);
    failWriteNumber(GetParam());
    EXPECT_EQ(engine->connect(), 0);
    expectEvents("1->2 2->4 4->3", kBrokenPipeLine, kRegistrationLines);
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
    expectRequests(GetParam() - 1);
    EXPECT_EQ(engine->getNumberOfInputParameters(false), 1U);
    EXPECT_EQ(engine->getNumberOfOutputParameters(false), 1U);
    engine->ignoreRequestsSoFar();
    EXPECT_EQ(engine->connect(), 0);
    expectRequests(3);
}

TEST_P(FailedRequestOnReady, WithReconnectPausesOneSecondWithoutAnyLock) {
    createWithBoth(kReconnect);
    failWriteNumber(GetParam());
    expectPauseWithoutLock("state 5->1", [this] { EXPECT_EQ(engine->connect(), 0); });
    expectEvents("1->2 2->4 4->5 5->1", kBrokenPipeLine, kRegistrationLines + std::string(kReconnectLine));
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
    expectRequests(GetParam() - 1);
    // The failure does not count for the next connection.
    engine->ignoreRequestsSoFar();
    EXPECT_EQ(engine->unregisterOutputParameters({"during the pause"}), 0);
    EXPECT_EQ(engine->startConnection(), 0);
    EXPECT_EQ(engine->getState(), CSClient::STATE_READY);
    expectRequests(3);
    EXPECT_EQ(sendControl(*engine), 0U);
}

INSTANTIATE_TEST_SUITE_P(Write, FailedRequestOnReady, testing::Values(1, 2, 3), testing::PrintToStringParamName());

using FailedWriteInStateChange = FailedWrite;

TEST_F(FailedWriteInStateChange, CallbackThatPublishesFailsOnceAndNothingMoreIsSent) {
    struct Row {
        unsigned int optionFlags;
        std::string publishIn;
        const char* results;  ///< After the failure there is no connection, and a publication counts as stored.
        const char* states;
    };
    for (const Row& row : {Row{0, "4", "4:2 ", "1->2 2->4 4->3"},
                           {0, "24", "2:2 4:0 ", "1->2 2->4 4->3"},
                           {0, "43", "4:2 3:0 ", "1->2 2->4 4->3"},
                           {kReconnect, "45", "4:2 5:0 ", "1->2 2->4 4->5 5->1"}}) {
        SCOPED_TRACE(row.results);
        createWithBoth(row.optionFlags);
        std::string results;
        callbacks->onLine = [&](const std::string& line) {
            if (row.publishIn.find(line.back()) != std::string::npos) {
                results += line.back() + (":" + std::to_string(engine->publish({intParameter("O", 0)}))) + " ";
            }
        };
        failWriteNumber(1);
        const Stopwatch stopwatch;
        EXPECT_EQ(engine->connect(), 0);
        EXPECT_EQ(isOneSecond(stopwatch.seconds()), row.optionFlags == kReconnect) << stopwatch.seconds();
        EXPECT_EQ(results, row.results);
        expectEvents(row.states, kBrokenPipeLine,
                     kRegistrationLines + std::string(row.optionFlags == kReconnect ? kReconnectLine : ""));
        EXPECT_TRUE(transport().written().empty());
    }
}

TEST_F(FailedWriteInStateChange, FurtherSendsOfTheCallbackReportNotConnected) {
    create(0);
    std::vector<unsigned int> results;
    callbacks->onLine = [&](const std::string& line) {
        for (int i = 0; line == "state 2->4" && i < 3; ++i) {
            results.push_back(sendControl(*engine));
        }
    };
    failWriteNumber(1);
    EXPECT_EQ(engine->connect(), 0);
    EXPECT_EQ(results, (std::vector<unsigned int>{2, 1, 1}));
    expectEvents("1->2 2->4 4->3", kBrokenPipeLine);
}

/// An operation that writes while it holds `parameterMutex`, and the numbers of entries after it.
struct WritingOperation {
    const char* name;
    int (*run)(TestEngine& engine);
    unsigned int inputs;
    unsigned int outputs;
};

const WritingOperation kWritingOperations[] = {
    {"RegisterInputs", [](TestEngine& engine) { return engine.registerInputs({input("I2")}); }, 2, 1},
    {"RegisterOutputs", [](TestEngine& engine) { return engine.registerOutputs({output("O2")}); }, 1, 2},
    {"UnregisterInputs", [](TestEngine& engine) { return engine.unregisterInputParameters({"I"}); }, 1, 1},
    {"UnregisterOutputs", [](TestEngine& engine) { return engine.unregisterOutputParameters({"O"}); }, 1, 1},
    {"Publish", [](TestEngine& engine) { return engine.publish({intParameter("O", 5)}); }, 1, 1},
};

class FailedWriteUnderParameterLock : public FailedWrite, public testing::WithParamInterface<WritingOperation> {
  protected:
    /// Connects with both confirmed. The next write fails.
    void connectWithBoth(unsigned int optionFlags) {
        connect(optionFlags);
        registerBoth();
        engine->receive(inputsConfirmed({{7, "I"}}));
        engine->receive(outputsConfirmed({{7, "O"}}));
        engine->ignoreRequestsSoFar();
        transport().failWrites(-1, EPIPE);
    }

    /// Expects the entries and ids of both and of the parameters that were added.
    void expectTables(unsigned int addedOutputs = 0) const {
        EXPECT_EQ(engine->getNumberOfInputParameters(false), GetParam().inputs);
        EXPECT_EQ(engine->getNumberOfOutputParameters(false), GetParam().outputs + addedOutputs);
        EXPECT_TRUE(engine->hasInputParameter("I", true));
        EXPECT_TRUE(engine->hasOutputParameter("O", true));
        EXPECT_EQ(engine->inputIds() + " " + engine->outputIds(), "7=I 7=O");
        EXPECT_TRUE(engine->requests().empty());
    }
};

TEST_P(FailedWriteUnderParameterLock, WithoutReconnectClosesOnceAndKeepsTheEntries) {
    connectWithBoth(0);
    callbacks->onLine = [this](const std::string&) {
        expectTables();
        EXPECT_EQ(engine->registerOutputs({output("in the callback")}), 0);
    };
    const Stopwatch stopwatch;
    EXPECT_EQ(GetParam().run(*engine), 2);
    EXPECT_LT(stopwatch.seconds(), kNoPause);
    EXPECT_EQ(engine->getServerIPAddress(), "0.0.0.0");
    expectTables(1);
    // The next operations find no connection.
    EXPECT_EQ(engine->registerOutputs({output("O3")}), 0);
    EXPECT_EQ(sendControl(*engine), 1U);
    expectEvents("4->3", kBrokenPipeLine);
}

TEST_P(FailedWriteUnderParameterLock, WithReconnectPausesOnTheCallersThreadWithoutAnyLock) {
    connectWithBoth(kReconnect);
    expectPauseWithoutLock("state 5->1", [this] { EXPECT_EQ(GetParam().run(*engine), 2); });
    expectTables(1);
    expectEvents("4->5 5->1", kBrokenPipeLine, kReconnectLine);
    EXPECT_EQ(engine->getServerIPAddress(), "127.0.0.1");
}

INSTANTIATE_TEST_SUITE_P(In, FailedWriteUnderParameterLock, testing::ValuesIn(kWritingOperations), kByName);

// The writer locks the parameters and then the connection. The closing thread and the worker lock in the other order.
TEST_F(FailedWrite, NeverDeadlocksWithStateChangesOnOtherThreads) {
    create();
    for (int round = 0; round < 150; ++round) {
        open();
        ASSERT_TRUE(waitForState(*engine, CSClient::STATE_READY));
        transport().failWrites(-1, EPIPE);
        auto writing = onAnotherThread([this] {
            engine->registerOutputs({output("O")});
            engine->unregisterAllOutputParameters();
        });
        auto closing = onAnotherThread([this] { engine->forceCloseConnection(); });
        ASSERT_EQ(writing.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        ASSERT_EQ(closing.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        ASSERT_TRUE(waitForState(*engine, CSClient::STATE_DISCONNECTED));
        // A failure that no write has met must not stay for the next round.
        engine->pretendState(CSClient::STATE_READY);
        sendControl(*engine);
        engine->pretendState(CSClient::STATE_DISCONNECTED);
    }
}

}  // namespace
}  // namespace com_tesk::test
