#include <gtest/gtest.h>

#include <functional>

#include "tests/simulator/SimulatorFixture.h"

namespace com_tesk::test {
namespace {

// A callback may call every operation of the engine. If it ran under a lock of the library, it would not return here.

const Lines kConfirmed = {"1: inputs confirmed A", "1: updated A=int:1"};
const Lines kConfirmedTwice = {"1: inputs confirmed A", "1: updated A=int:1", "2: inputs confirmed A",
                               "2: updated A=int:1"};

/// Two interfaces share a log of lines such as "1: outputs confirmed P". The first is called first, and can act.
class CallbackActions : public ::testing::Test {
  protected:
    CallbackActions() {
        for (int i = 0; i < 2; ++i) {
            interfaces[i].onLine = [this, i](const std::string& line) {
                log.push_back(std::to_string(i + 1) + ": " + line);
                if (i == 0 && action) {
                    action(line);
                }
            };
        }
        makeReady(engine);
        engine.registerInputs({input("A")});
        engine.registerOutputs({output("P", CSClient::TYPE_INT)});
        engine.addCallbackInterface(first);
        engine.ignoreRequestsSoFar();
    }

    void confirmInput() { engine.receive(inputConfirmation(1, {confirmedInput(7, 1, "00 00 00 01", "A")})); }
    void confirmOutput() { engine.receive(outputsConfirmed({{8, "P"}})); }
    void updateInput() { engine.receive(update(1, {updated(7, 1, "00 00 00 02")})); }

    /// Runs `act` in each callback of the first interface whose line contains `event`, after the line was recorded.
    void in(const std::string& event, const std::function<void()>& act) {
        action = [event, act](const std::string& line) {
            if (line.find(event) != std::string::npos) {
                act();
            }
        };
    }

    /// Returns the lines since the last call.
    Lines newLines() { return std::exchange(log, {}); }

    CapturedStreams streams;
    Lines log;
    std::function<void(const std::string& line)> action;
    /// An array, so that their addresses ascend.
    RecordingCallbacks interfaces[2];
    RecordingCallbacks* const first = &interfaces[0];
    RecordingCallbacks* const second = &interfaces[1];
    TestEngine engine{5};
};

TEST_F(CallbackActions, InterfacesAreCalledInTheOrderOfTheirAddresses) {
    engine.removeCallbackInterface(first);
    engine.addCallbackInterface(second);
    engine.addCallbackInterface(first);
    confirmInput();
    EXPECT_EQ(newLines(), kConfirmedTwice);
    updateInput();
    EXPECT_EQ(newLines(), (Lines{"1: updated A=int:2", "2: updated A=int:2"}));
    engine.publish({intParameter("P", 1)});
    engine.fakeTransport().onWrite = [this] { log.push_back("published again"); };
    confirmOutput();
    EXPECT_EQ(newLines(), (Lines{"1: outputs confirmed P", "2: outputs confirmed P", "published again"}));
}

TEST_F(CallbackActions, EveryCallbackMayRegisterPublishAndQuery) {
    int calls = 0;
    in("", [&] {
        EXPECT_FALSE(engine.holdsAnyLock());
        ++calls;
        EXPECT_EQ(engine.registerInputs({input("I" + std::to_string(calls))}), 0);
        EXPECT_EQ(engine.registerOutputs({output("O" + std::to_string(calls))}), 0);
        EXPECT_EQ(engine.publish({intParameter("P", 42)}), 0);
        EXPECT_TRUE(engine.hasInputParameter("A", true));
        EXPECT_EQ(engine.getNumberOfInputParameters(true), 1U);
        EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    });
    confirmInput();
    updateInput();
    confirmOutput();
    EXPECT_EQ(calls, 4);
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 5U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 5U);
    EXPECT_EQ(engine.requests().size(), 13U) << "The confirmed output is published once more.";
    EXPECT_EQ(engine.requests()[2], publication({{0xFFFFF, 42}}));
    EXPECT_EQ(engine.requests().back(), publication({{8, 42}}));
}

TEST_F(CallbackActions, EveryCallbackMayUnregister) {
    in("", [&] {
        EXPECT_EQ(engine.unregisterInputParameters({"A"}), 0);
        engine.unregisterAllOutputParameters();
    });
    confirmInput();
    EXPECT_EQ(newLines(), kConfirmed);
    updateInput();
    EXPECT_EQ(newLines(), Lines{});
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 0U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 0U);
    EXPECT_EQ(engine.requests(), (Lines{"04 02 7F FF 00 00 00 18 00 7F 00 04 00 05 00 00 00 00 00 01 00 00 00 07",
                                        "04 02 7F FF 00 00 00 18 00 7F 00 05 00 05 00 00 00 00 00 01 00 0F FF FF"}));
}

TEST_F(CallbackActions, AddedInterfaceIsCalledFromTheNextEventOn) {
    in("", [&] { engine.addCallbackInterface(second); });
    confirmInput();
    EXPECT_EQ(newLines(), kConfirmed);
    engine.removeCallbackInterface(second);
    updateInput();
    EXPECT_EQ(newLines(), Lines{"1: updated A=int:2"});
    engine.removeCallbackInterface(second);
    confirmOutput();
    EXPECT_EQ(newLines(), Lines{"1: outputs confirmed P"});
    updateInput();
    EXPECT_EQ(newLines(), (Lines{"1: updated A=int:2", "2: updated A=int:2"}));
}

TEST_F(CallbackActions, RemovedInterfaceIsStillCalledForThisEvent) {
    in("", [&] { engine.removeCallbackInterface(second); });
    engine.addCallbackInterface(second);
    confirmInput();
    EXPECT_EQ(newLines(), kConfirmedTwice);
    engine.addCallbackInterface(second);
    confirmOutput();
    EXPECT_EQ(newLines(), (Lines{"1: outputs confirmed P", "2: outputs confirmed P"}));
    engine.addCallbackInterface(second);
    updateInput();
    EXPECT_EQ(newLines(), (Lines{"1: updated A=int:2", "2: updated A=int:2"}));
    updateInput();
    EXPECT_EQ(newLines(), Lines{"1: updated A=int:2"});
}

TEST_F(CallbackActions, InterfaceThatRemovesItselfStillReceivesTheConfirmedValues) {
    engine.addCallbackInterface(second);
    in("inputs confirmed", [&] { engine.removeCallbackInterface(first); });
    confirmInput();
    EXPECT_EQ(newLines(), kConfirmedTwice);
    updateInput();
    EXPECT_EQ(newLines(), Lines{"2: updated A=int:2"});
}

TEST_F(CallbackActions, CallbackMayEndTheConnection) {
    engine.addCallbackInterface(second);
    in("inputs confirmed", [&] { engine.forceCloseConnection(); });
    confirmInput();
    EXPECT_EQ(newLines(), (Lines{"1: inputs confirmed A", "1: state 4->3", "2: state 4->3", "1: updated A=int:1",
                                 "2: inputs confirmed A", "2: updated A=int:1"}));
}

TEST_F(CallbackActions, FailedWriteInACallbackGivesOneLineAndOneClose) {
    in("inputs confirmed", [&] {
        engine.fakeTransport().failWrites(-1, 32);
        EXPECT_EQ(engine.registerOutputs({output("Q")}), 2);
    });
    confirmInput();
    EXPECT_EQ(streams.err(), "Error writing to server (32) \n");
    EXPECT_EQ(newLines(), (Lines{"1: inputs confirmed A", "1: state 4->3", "1: updated A=int:1"}));
}

TEST_F(CallbackActions, CallbackMayHandleAnotherMessage) {
    // This shows that not even the handlers' own locks are held.
    in("inputs confirmed", [&] {
        confirmOutput();
        updateInput();
    });
    confirmInput();
    EXPECT_EQ(newLines(),
              (Lines{"1: inputs confirmed A", "1: outputs confirmed P", "1: updated A=int:2", "1: updated A=int:1"}));
}

}  // namespace
}  // namespace com_tesk::test
