#include <set>

#include "tests/engine/connection/ConnectionFixtures.h"

namespace com_tesk::test {
namespace {

using Interfaces = std::set<CSClient::CallbackIface*>;

class CallbackRegistry : public testing::Test {
  protected:
    TestEngine engine{1, kSilent};
    RecordingCallbacks first;
    RecordingCallbacks second;
};

TEST_F(CallbackRegistry, AddsAnInterfaceOnceAndRefusesNull) {
    EXPECT_EQ(engine.addCallbackInterface(nullptr), 0U);
    EXPECT_EQ(engine.removeCallbackInterface(nullptr), 0);
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 0);
    EXPECT_FALSE(engine.hasCallbackInterface(nullptr));
    EXPECT_FALSE(engine.hasCallbackInterface(&first));
    EXPECT_EQ(engine.addCallbackInterface(&first), 1U);
    EXPECT_EQ(engine.addCallbackInterface(&first), 0U);
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    EXPECT_TRUE(engine.hasCallbackInterface(&first));
    EXPECT_FALSE(engine.hasCallbackInterface(&second));
    engine.changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(first.states(), "0->1");
}

TEST_F(CallbackRegistry, RemovesAnInterfaceThatCanBeAddedAgain) {
    engine.addCallbackInterface(&first);
    EXPECT_EQ(engine.removeCallbackInterface(&second), 0) << "it was never added";
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    engine.addCallbackInterface(&second);
    EXPECT_EQ(engine.removeCallbackInterface(&first), 0);
    EXPECT_FALSE(engine.hasCallbackInterface(&first));
    EXPECT_TRUE(engine.hasCallbackInterface(&second));
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    engine.changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine.addCallbackInterface(&first), 1U);
    engine.changeState(CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(first.states(), "1->3");
    EXPECT_EQ(second.states(), "0->1 1->3");
}

TEST_F(CallbackRegistry, CopyReplacesWhatWasInTheSet) {
    RecordingCallbacks other;
    Interfaces out{&other};
    EXPECT_EQ(engine.getCallbackInterfaces(out), 0);
    EXPECT_TRUE(out.empty());
    engine.addCallbackInterface(&first);
    engine.addCallbackInterface(&second);
    out = {&other};
    EXPECT_EQ(engine.getCallbackInterfaces(out), 0);
    EXPECT_EQ(out, (Interfaces{&first, &second}));
    out.erase(&first);
    EXPECT_TRUE(engine.hasCallbackInterface(&first)) << "the copy is not the registry";
    engine.removeCallbackInterface(&second);
    EXPECT_EQ(out, Interfaces{&second});
}

TEST_F(CallbackRegistry, CopyIntoItselfDoesNothing) {
    engine.addCallbackInterface(&first);
    engine.addCallbackInterface(&second);
    EXPECT_EQ(engine.getCallbackInterfaces(engine.callbackInterfaces()), 0);
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 2);
    engine.changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(first.states() + " " + second.states(), "0->1 0->1");
}

TEST_F(CallbackRegistry, IsKeptAfterTheEndOfAConnection) {
    engine.addCallbackInterface(&first);
    for (int round = 0; round < 2; ++round) {
        const EndOnExit end(engine);
        ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
    }
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
    EXPECT_TRUE(first.waitFor("state 3->0", 2));
}

TEST_F(CallbackRegistry, AnyThreadMayUseItWhileOthersNotify) {
    std::vector<std::future<void>> running;
    for (RecordingCallbacks* const own : {&first, &second}) {
        running.push_back(onAnotherThread([this, own] {
            for (int round = 0; round < 500; ++round) {
                EXPECT_EQ(engine.addCallbackInterface(own), 1U);
                EXPECT_TRUE(engine.hasCallbackInterface(own));
                EXPECT_GE(engine.getNumCallbackInterfaces(), 1);
                Interfaces out;
                EXPECT_EQ(engine.getCallbackInterfaces(out), 0);
                EXPECT_EQ(out.count(own), 1U);
                EXPECT_EQ(engine.removeCallbackInterface(own), 0);
            }
        }));
    }
    for (int round = 0; round < 500; ++round) {
        engine.changeState(CSClient::STATE_CONNECTING);
        engine.changeState(CSClient::STATE_DISCONNECTING);
        engine.changeState(CSClient::STATE_DISCONNECTED);
    }
    running.clear();
    EXPECT_EQ(engine.getNumCallbackInterfaces(), 0);
}

const std::string kInputConfirmed = inputConfirmation(1, {confirmedInput(7, 1, hexWord(3), "I")});
const std::string kInputUpdated = update(1, {updated(7, 1, "FF FF FF FE")});
const std::string kOutputConfirmed = outputsConfirmed({{9, "O"}});

/// Three interfaces A, B and C at ascending addresses, and an engine with an input "I" and an output "O". If a callback
/// ran under a lock that an operation needs, the operation would not return.
class CallbackNotification : public testing::Test {
  protected:
    CallbackNotification() {
        for (int i = 0; i < 3; ++i) {
            interfaces[i].onLine = [this, i](const std::string& line) {
                {
                    const std::lock_guard<std::mutex> lock(mutex);
                    log.push_back(std::string(1, static_cast<char>('A' + i)) + " " + line);
                }
                if (i == 0 && inA) {
                    inA(line);
                }
            };
        }
        engine.registerInputs({input("I", CSClient::TYPE_INT)});
        engine.registerOutputs({output("O", CSClient::TYPE_INT)});
    }

    /// Returns the lines since the last call.
    Strings newLines() { return std::exchange(log, {}); }

    /// Adds the interfaces in another order than that of their addresses.
    void addAll() {
        engine.addCallbackInterface(&c);
        engine.addCallbackInterface(&a);
        engine.addCallbackInterface(&b);
    }

    void becomeConnected() {
        engine.pretendState(CSClient::STATE_CONNECTING);
        engine.changeState(CSClient::STATE_CONNECTED);
    }

    std::mutex mutex;
    Strings log;
    std::function<void(const std::string& line)> inA;  ///< Called in each callback of A.
    Gate gate;
    RecordingCallbacks interfaces[3];
    RecordingCallbacks& a = interfaces[0];
    RecordingCallbacks& b = interfaces[1];
    RecordingCallbacks& c = interfaces[2];
    TestEngine engine{1, kSilent};
};

TEST_F(CallbackNotification, OfAStateChangeGoesByAscendingAddress) {
    addAll();
    becomeConnected();
    EXPECT_EQ(
        log, (Strings{"A state 1->2", "B state 1->2", "C state 1->2", "A state 2->4", "B state 2->4", "C state 2->4"}));
}

TEST_F(CallbackNotification, OfAMessageMakesAllCallsOnOneInterfaceBeforeTheNext) {
    struct Row {
        std::string body;
        Strings calls;
    };
    addAll();
    for (const Row& row : {Row{update(0, {}), {}},
                           {kInputUpdated, {}},  // Its id is not known yet.
                           {inputConfirmation(0, {}), {"inputs confirmed", "updated"}},
                           {kInputConfirmed, {"inputs confirmed I", "updated I=int:3"}},
                           {kInputUpdated, {"updated I=int:-2"}},
                           {outputConfirmation(0, {}), {"outputs confirmed"}},
                           {kOutputConfirmed, {"outputs confirmed O"}}}) {
        SCOPED_TRACE(row.body);
        Strings expected;
        for (const char* const name : {"A ", "B ", "C "}) {
            for (const std::string& call : row.calls) {
                expected.push_back(name + call);
            }
        }
        engine.receive(row.body);
        EXPECT_EQ(newLines(), expected);
    }
    engine.pretendState(CSClient::STATE_READY);
    engine.publish({intParameter("O", 5)});
    engine.fakeTransport().onWrite = [this] { log.emplace_back("published again"); };
    engine.receive(kOutputConfirmed);
    EXPECT_EQ(log,
              (Strings{"A outputs confirmed O", "B outputs confirmed O", "C outputs confirmed O", "published again"}));
}

TEST_F(CallbackNotification, StillReachesWhatACallbackRemovesAndNotYetWhatItAdds) {
    for (const bool isOfAState : {true, false}) {
        engine.addCallbackInterface(&a);
        engine.addCallbackInterface(&b);
        inA = [this](const std::string&) {
            engine.removeCallbackInterface(&a);
            engine.removeCallbackInterface(&b);
            engine.addCallbackInterface(&c);
        };
        if (isOfAState) {
            becomeConnected();
            EXPECT_EQ(newLines(), (Strings{"A state 1->2", "B state 1->2", "C state 2->4"}));
        } else {
            engine.receive(kInputConfirmed);
            EXPECT_EQ(newLines(), (Strings{"A inputs confirmed I", "A updated I=int:3", "B inputs confirmed I",
                                           "B updated I=int:3"}));
            engine.receive(kInputUpdated);
            EXPECT_EQ(newLines(), Strings{"C updated I=int:-2"});
        }
        engine.removeCallbackInterface(&c);
    }
}

TEST_F(CallbackNotification, AllowsEveryUseOfTheEngineInEveryCallback) {
    engine.connect();
    engine.addCallbackInterface(&a);
    int calls = 0;
    inA = [&](const std::string& line) {
        ++calls;
        Interfaces out;
        EXPECT_TRUE(engine.hasCallbackInterface(&a));
        EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
        EXPECT_EQ(engine.getCallbackInterfaces(out), 0);
        EXPECT_EQ(out, Interfaces{&a});
        EXPECT_EQ(engine.registerInputs({input("P")}), 0);
        EXPECT_EQ(engine.registerOutputs({output("P", CSClient::TYPE_INT)}), 0);
        EXPECT_EQ(engine.publish({intParameter("P", 0)}), 0);
        EXPECT_TRUE(engine.hasInputParameter("P", false) && engine.hasOutputParameter("P", false));
        EXPECT_EQ(engine.unregisterInputParameters({"P"}), 0);
        EXPECT_EQ(engine.unregisterOutputParameters({"P"}), 0);
        EXPECT_FALSE(engine.holdsOtherLock());
        EXPECT_EQ(engine.holdsConnectionMutex(), line == "state 4->3");
    };
    engine.receive(kInputConfirmed);
    engine.receive(kOutputConfirmed);
    engine.receive(kInputUpdated);
    engine.forceCloseConnection();
    EXPECT_EQ(calls, 5);
    newLines();
    inA = [this](const std::string&) { engine.unregisterAllLocalParameters(); };
    engine.receive(kInputConfirmed);
    EXPECT_EQ(newLines(), (Strings{"A inputs confirmed I", "A updated I=int:3"}));
    engine.receive(kInputUpdated);
    EXPECT_EQ(newLines(), Strings{});
}

TEST_F(CallbackNotification, AllowsOtherEventsInACallback) {
    engine.connect();
    engine.addCallbackInterface(&a);
    engine.addCallbackInterface(&b);
    inA = [this](const std::string& line) {
        if (line == "inputs confirmed I") {
            engine.forceCloseConnection();
            // This shows that not even the handlers' own locks are held.
            engine.receive(kOutputConfirmed);
            engine.receive(kInputUpdated);
        }
    };
    engine.receive(kInputConfirmed);
    EXPECT_EQ(log, (Strings{"A inputs confirmed I", "A state 4->3", "B state 4->3", "A outputs confirmed O",
                            "B outputs confirmed O", "A updated I=int:-2", "B updated I=int:-2", "A updated I=int:3",
                            "B inputs confirmed I", "B updated I=int:3"}));
}

TEST_F(CallbackNotification, OfAStateChangeBlocksNeitherRegistrationsNorTheRegistry) {
    RecordingCallbacks added;
    addAll();
    inA = [&](const std::string&) { gate.pass(); };
    auto changing = onAnotherThread([this] { engine.changeState(CSClient::STATE_CONNECTING); });
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_EQ(engine.registerOutputs({output("P")}), 0);
    EXPECT_EQ(engine.addCallbackInterface(&added), 1U);
    EXPECT_EQ(engine.removeCallbackInterface(&b), 0);
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(changing.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    gate.open();
    changing.get();
    engine.changeState(CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(log, (Strings{"A state 0->1", "B state 0->1", "C state 0->1", "A state 1->3", "C state 1->3"}));
    EXPECT_EQ(added.states(), "1->3");
}

TEST_F(CallbackNotification, OfValuesComesOnTheWorker) {
    engine.addCallbackInterface(&a);
    std::thread::id worker;
    std::thread::id notifier;
    engine.onMessage = [&worker] { worker = std::this_thread::get_id(); };
    inA = [&notifier](const std::string& line) {
        if (line == "outputs confirmed O") {
            notifier = std::this_thread::get_id();
        }
    };
    engine.fakeTransport().queueFrame(kOutputConfirmed);
    {
        const EndOnExit end(engine);
        ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
        ASSERT_TRUE(a.waitFor("outputs confirmed O"));
    }
    EXPECT_EQ(notifier, worker);
    EXPECT_NE(notifier, std::this_thread::get_id());
}

}  // namespace
}  // namespace com_tesk::test
