#include <gtest/gtest.h>

#include <iostream>
#include <streambuf>

#include "tests/simulator/SimulatorFixture.h"

namespace com_tesk::test {
namespace {

using OutputConfirmation = SimulatorFixture;

TEST_F(OutputConfirmation, KeepsValueAndPublishedMarkAndLaterPublicationsCarryTheId) {
    engine.registerOutputs({output("P", CSClient::TYPE_INT), output("Q", CSClient::TYPE_INT)});
    engine.publish({intParameter("P", 42)});
    engine.receive(outputsConfirmed({{0x01020304, "P"}, {8, "Q"}}));
    EXPECT_EQ(engine.outputTable(), (Lines{"P type 2 id 16909060 published 0000002A", "Q type 2 id 8 00000000"}));
    engine.ignoreRequestsSoFar();
    engine.publish({intParameter("P", 43)});
    EXPECT_EQ(engine.requests(), Lines{publication({{0x01020304, 43}})});
}

TEST_F(OutputConfirmation, SilentUnknownNameIsNotReported) {
    TestEngine silent(5, kSilent);
    makeReady(silent);
    silent.addCallbackInterface(&callbacks);
    silent.registerOutputs({output("P")});
    silent.receive(outputsConfirmed({{7, "unknown"}, {8, "P"}}));
    EXPECT_EQ(printed(), "");
    EXPECT_EQ(newCallbacks(), Lines{"outputs confirmed P"});
}

/// Records at each write whether the writing thread has the parameter mutex.
class LockObserver : public std::streambuf {
  public:
    explicit LockObserver(const TestEngine& observedEngine) : engine(observedEngine) {}
    std::vector<bool> held;

  protected:
    std::streamsize xsputn(const char* /*characters*/, std::streamsize count) override {
        held.push_back(engine.holdsParameterMutex());
        return count;
    }

  private:
    const TestEngine& engine;
};

TEST_F(OutputConfirmation, ReportsUnknownNamesUnderTheParameterMutexBeforeTheCallbacks) {
    LockObserver observer(engine);
    callbacks.onLine = [&](const std::string&) { EXPECT_EQ(observer.held, std::vector<bool>{true}); };
    std::streambuf* const captured = std::cerr.rdbuf(&observer);
    engine.receive(outputsConfirmed({{7, "X"}}));
    std::cerr.rdbuf(captured);
    EXPECT_EQ(newCallbacks(), Lines{"outputs confirmed"});
}

/// Three integer outputs P, Q and R that wait for their confirmation, the first two published.
class PublishAgain : public SimulatorFixture {
  protected:
    PublishAgain() { registerAll(); }

    void registerAll() {
        engine.unregisterAllLocalParameters();
        engine.registerOutputs(
            {output("P", CSClient::TYPE_INT), output("Q", CSClient::TYPE_INT), output("R", CSClient::TYPE_INT)});
        engine.publish({intParameter("P", 1), intParameter("Q", -2)});
        engine.ignoreRequestsSoFar();
    }

    void confirmAll() { engine.receive(outputsConfirmed({{9, "R"}, {8, "Q"}, {7, "P"}})); }

    const std::string p = publication({{7, 1}});
    const std::string qAndP = publication({{8, 0xFFFFFFFE}, {7, 1}});
};

TEST_F(PublishAgain, SendsThePublishedOutputsInTheOrderOfTheMessage) {
    const std::pair<std::vector<IdAndName>, Lines> rows[] = {
        {{{9, "R"}, {8, "Q"}, {7, "P"}}, {qAndP}},
        {{{7, "P"}}, {p}},
        {{{7, "P"}, {9, "R"}}, {p}},
        {{{9, "R"}}, {}},
        {{}, {}},
        {{{7, "P"}, {6, "P"}}, {publication({{6, 1}, {6, 1}})}},  // A repeated name is sent twice under its last id.
    };
    for (const bool hasInterface : {true, false}) {
        for (const auto& [records, expected] : rows) {
            engine.receive(outputsConfirmed(records));
            EXPECT_EQ(newRequests(engine), expected);
        }
        if (hasInterface) {
            engine.removeCallbackInterface(&callbacks);
        }
    }
}

TEST_F(PublishAgain, SendsTheOutputsAsTheCallbacksLeaveThem) {
    struct Row {
        const char* name;
        std::function<void()> action;
        Lines requests;
    };
    const auto registerAgain = [this](const std::string& name) {
        engine.unregisterOutputParameters({name});
        engine.registerOutputs({output(name, CSClient::TYPE_INT)});
        engine.ignoreRequestsSoFar();
    };
    const Row rows[] = {
        {"unregister Q",
         [this] { engine.unregisterOutputParameters({"Q"}); },
         {"04 02 7F FF 00 00 00 18 00 7F 00 05 00 05 00 00 00 00 00 01 00 00 00 08", p}},
        {"unregister all",
         [this] { engine.unregisterAllOutputParameters(); },
         {"04 02 7F FF 00 00 00 20 00 7F 00 05 00 05 00 00 00 00 00 03 00 00 00 07 00 00 00 08 00 00 00 09"}},
        {"register Q again, which is then unpublished", [&] { registerAgain("Q"); }, {p}},
        {"register P again, which then waits, and publish it",
         [&] {
             registerAgain("P");
             engine.publish({intParameter("P", 3)});
         },
         {publication({{0xFFFFF, 3}}), publication({{8, 0xFFFFFFFE}, {0xFFFFF, 3}})}},
        {"publish P",
         [this] { engine.publish({intParameter("P", 42)}); },
         {publication({{7, 42}}), publication({{8, 0xFFFFFFFE}, {7, 42}})}},
        {"publish R for the first time",
         [this] { engine.publish({intParameter("R", 42)}); },
         {publication({{9, 42}}), qAndP}},
        {"end the connection", [this] { engine.forceCloseConnection(); }, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        registerAll();
        callbacks.onLine = [&row](const std::string& line) {
            if (line == "outputs confirmed R Q P") {
                row.action();
            }
        };
        confirmAll();
        EXPECT_EQ(engine.requests(), row.requests);
        EXPECT_EQ(streams.err(), "");
    }
}

TEST_F(PublishAgain, FailedWriteGivesOneLineAndOneClose) {
    engine.fakeTransport().failWrites(-1, 32);
    confirmAll();
    EXPECT_EQ(streams.err(), "Error writing to server (32) \n");
    EXPECT_EQ(newCallbacks(), (Lines{"outputs confirmed R Q P", "state 4->3"}));
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
}

TEST_F(PublishAgain, FailedWriteReconnectsOnceAndTheValuesFollow) {
    TestEngine other(5, kReconnect);
    makeReady(other);
    other.registerOutputs({output("P", CSClient::TYPE_INT)});
    other.publish({intParameter("P", 1)});
    other.skipPauses();
    other.addCallbackInterface(&callbacks);
    const std::string printedBefore = streams.out();
    other.fakeTransport().failWrites(-1, 32);
    other.receive(outputsConfirmed({{6, "P"}}));
    EXPECT_EQ(streams.err(), "Error writing to server (32) \n");
    EXPECT_EQ(streams.out(), printedBefore + "Attempting to reconnect...\n");
    EXPECT_EQ(newCallbacks(), (Lines{"outputs confirmed P", "state 4->5", "state 5->1"}));
    makeReady(other);
    other.receive(outputsConfirmed({{7, "P"}}));
    EXPECT_EQ(other.requests(), Lines{p});
}

TEST_F(PublishAgain, UsesTheVirtualSenderWithModeZero) {
    Lines sent;
    engine.onSend = [&sent](const std::string& call) {
        sent.push_back(call);
        return 0;
    };
    engine.receive(outputsConfirmed({{8, "Q"}, {7, "P"}}));
    EXPECT_EQ(sent, Lines{"publish mode 0 Q P"});
}

}  // namespace
}  // namespace com_tesk::test
