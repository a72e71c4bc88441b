#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using Strings = std::vector<std::string>;

constexpr const char* kSubscriptionOfNone = "04 02 7F FF 00 00 00 14 00 7F 01 01 00 01 00 00 00 00 00 00";
constexpr const char* kPublicationOfNone = "04 02 7F FF 00 00 00 14 00 7F 01 02 00 01 00 00 00 00 00 00";
constexpr const char* kUpdateOfNone = "04 02 7F FF 00 00 00 18 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 00";
constexpr const char* kUpdateOfInputSeven =
    "04 02 7F FF 00 00 00 24 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 00 01 "
    "00 00 00 07 00 00 00 01 FF FF FF FE";

/// The confirmation of the input "I" under the id 7, with the value 3.
std::string subscriptionOfI() {
    return "04 02 7F FF 00 00 00 48 00 7F 01 01 00 01 00 00 00 00 00 01 "
           "00 00 00 07 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 03 " +
           hexField("I");
}

std::string publicationOfO() {
    return "04 02 7F FF 00 00 00 44 00 7F 01 02 00 01 00 00 00 00 00 01 "
           "00 00 00 09 00 00 00 00 00 00 00 00 00 00 00 00 " +
           hexField("O");
}

/// Writes its name and what it heard into a log that several share, then does what the test wants.
class NamedCallbacks : public RecordingCallbacks {
  public:
    void record(const std::string& line) override {
        if (log != nullptr) {
            const std::lock_guard<std::mutex> lock(*logMutex);
            log->push_back(name + " " + line);
        }
        RecordingCallbacks::record(line);
        if (then) {
            then(line);
        }
    }

    std::string name;
    Strings* log = nullptr;
    std::mutex* logMutex = nullptr;
    std::function<void(const std::string&)> then;
};

/// Three interfaces A, B and C at ascending addresses, and an engine that knows an input "I" and an output "O".
class CallbackNotification : public testing::Test {
  protected:
    CallbackNotification() {
        for (int i = 0; i < 3; ++i) {
            interfaces[i].name = std::string(1, static_cast<char>('A' + i));
            interfaces[i].log = &log;
            interfaces[i].logMutex = &logMutex;
        }
        const CSClient::InputDef input{"I", CSClient::TYPE_INT, 1};
        const CSClient::OutputDef output{"O", CSClient::TYPE_INT};
        engine.registerInputParameters(&input, 1);
        engine.registerOutputParameters(&output, 1);
    }

    void addAll() {
        // Against the order of the addresses.
        engine.addCallbackInterface(&c);
        engine.addCallbackInterface(&a);
        engine.addCallbackInterface(&b);
    }

    Strings log;
    std::mutex logMutex;
    NamedCallbacks interfaces[3];
    NamedCallbacks& a = interfaces[0];
    NamedCallbacks& b = interfaces[1];
    NamedCallbacks& c = interfaces[2];
    ConnectionEngine engine{kSilent};
};

TEST_F(CallbackNotification, OfAStateChangeGoesByAscendingAddress) {
    addAll();
    engine.pretendState(CSClient::STATE_CONNECTING);
    engine.changeState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(
        log, (Strings{"A state 1->2", "B state 1->2", "C state 1->2", "A state 2->4", "B state 2->4", "C state 2->4"}));
}

TEST_F(CallbackNotification, OfASubscriptionMakesBothCallsOnOneInterfaceBeforeTheNext) {
    addAll();
    engine.receive(subscriptionOfI());
    EXPECT_EQ(log, (Strings{"A inputs confirmed I", "A updated I=int:3", "B inputs confirmed I", "B updated I=int:3",
                            "C inputs confirmed I", "C updated I=int:3"}));
}

TEST_F(CallbackNotification, OfASubscriptionThatConfirmsNothingIsMadeAllTheSame) {
    engine.addCallbackInterface(&a);
    engine.receive(kSubscriptionOfNone);
    EXPECT_EQ(log, (Strings{"A inputs confirmed", "A updated"}));
}

TEST_F(CallbackNotification, OfAPublicationGoesByAscendingAddress) {
    addAll();
    engine.receive(publicationOfO());
    EXPECT_EQ(log, (Strings{"A outputs confirmed O", "B outputs confirmed O", "C outputs confirmed O"}));
}

TEST_F(CallbackNotification, OfAPublicationThatConfirmsNothingIsMadeAllTheSame) {
    addAll();
    engine.receive(kPublicationOfNone);
    EXPECT_EQ(log, (Strings{"A outputs confirmed", "B outputs confirmed", "C outputs confirmed"}));
}

TEST_F(CallbackNotification, OfAPublicationComesBeforeTheValueIsPublishedAgain) {
    CSClient::Parameter parameter{"O", {}, CSClient::TYPE_INT, 0};
    parameter.value.asInt = 5;
    EXPECT_EQ(engine.publishParameters(&parameter, 1, CSClientProtocol::PUBLISH_DEFAULT), 0);
    engine.connect();
    engine.addCallbackInterface(&a);
    const std::size_t before = engine.probe().written().size();
    std::size_t writtenInCallback = 0;
    a.then = [&](const std::string&) { writtenInCallback = engine.probe().written().size(); };
    engine.receive(publicationOfO());
    EXPECT_EQ(writtenInCallback, before);
    EXPECT_EQ(engine.probe().written().size(), before + 1);
}

TEST_F(CallbackNotification, OfAnUpdateGoesByAscendingAddress) {
    engine.receive(subscriptionOfI());
    addAll();
    engine.receive(kUpdateOfInputSeven);
    EXPECT_EQ(log, (Strings{"A updated I=int:-2", "B updated I=int:-2", "C updated I=int:-2"}));
}

TEST_F(CallbackNotification, OfAnUpdateWithoutAKnownInputIsNotMade) {
    addAll();
    engine.receive(kUpdateOfNone);
    engine.receive(kUpdateOfInputSeven);
    EXPECT_TRUE(log.empty());
}

TEST_F(CallbackNotification, IsNotDisturbedByAnInterfaceThatRemovesItself) {
    addAll();
    a.then = [this](const std::string&) { EXPECT_EQ(engine.removeCallbackInterface(&a), 0); };
    engine.pretendState(CSClient::STATE_CONNECTING);
    engine.changeState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(log, (Strings{"A state 1->2", "B state 1->2", "C state 1->2", "B state 2->4", "C state 2->4"}));
}

TEST_F(CallbackNotification, StillReachesAnInterfaceThatAnEarlierOneRemoves) {
    addAll();
    a.then = [this](const std::string&) { engine.removeCallbackInterface(&c); };
    engine.changeState(CSClient::STATE_CONNECTING);
    engine.changeState(CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(log, (Strings{"A state 0->1", "B state 0->1", "C state 0->1", "A state 1->3", "B state 1->3"}));
}

TEST_F(CallbackNotification, ReachesAnInterfaceThatIsAddedMeanwhileFromTheNextEventOn) {
    engine.addCallbackInterface(&a);
    a.then = [this](const std::string&) { engine.addCallbackInterface(&b); };
    engine.pretendState(CSClient::STATE_CONNECTING);
    engine.changeState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(log, (Strings{"A state 1->2", "A state 2->4", "B state 2->4"}));
}

TEST_F(CallbackNotification, ReachesARemovedInterfaceInBothCallsOfASubscription) {
    engine.addCallbackInterface(&a);
    a.then = [this](const std::string&) { engine.removeCallbackInterface(&a); };
    engine.receive(subscriptionOfI());
    engine.receive(subscriptionOfI());
    EXPECT_EQ(log, (Strings{"A inputs confirmed I", "A updated I=int:3"}));
}

TEST_F(CallbackNotification, MayAskTheRegistryAnything) {
    engine.addCallbackInterface(&a);
    std::set<CSClient::CallbackIface*> out;
    a.then = [&](const std::string&) {
        EXPECT_TRUE(engine.hasCallbackInterface(&a));
        EXPECT_EQ(engine.getNumCallbackInterfaces(), 1);
        EXPECT_EQ(engine.getCallbackInterfaces(out), 0);
    };
    engine.changeState(CSClient::STATE_CONNECTING);
    EXPECT_EQ(out.count(&a), 1U);
}

TEST_F(CallbackNotification, MayRegisterUnregisterPublishAndQueryInEveryCallback) {
    engine.connect();
    engine.addCallbackInterface(&a);
    int calls = 0;
    a.then = [&](const std::string&) {
        ++calls;
        const CSClient::OutputDef output{"P", CSClient::TYPE_INT};
        const CSClient::Parameter parameter{"P", {}, CSClient::TYPE_INT, 0};
        EXPECT_EQ(engine.registerOutputParameters(&output, 1), 0);
        EXPECT_EQ(engine.publishParameters(&parameter, 1, CSClientProtocol::PUBLISH_DEFAULT), 0);
        EXPECT_TRUE(engine.hasOutputParameter("P", false));
        EXPECT_EQ(engine.unregisterOutputParameters({"P"}), 0);
    };
    engine.receive(subscriptionOfI());
    engine.receive(publicationOfO());
    engine.receive(kUpdateOfInputSeven);
    engine.forceCloseConnection();
    EXPECT_EQ(calls, 5);
}

TEST_F(CallbackNotification, OfValuesHoldsNoLockOfTheConnection) {
    engine.connect();
    engine.addCallbackInterface(&a);
    a.then = [&](const std::string& line) {
        if (line != "state 4->3") {
            engine.forceCloseConnection();
        }
    };
    engine.receive(kSubscriptionOfNone);
    EXPECT_EQ(a.states(), "4->3");
}

TEST_F(CallbackNotification, OfAStateChangeHoldsUpNeitherRegistrationsNorTheRegistry) {
    engine.addCallbackInterface(&a);
    Latch inCallback;
    Latch goOn;
    a.then = [&](const std::string&) {
        inCallback.open();
        goOn.wait();
    };
    const auto changing = std::async(std::launch::async, [this] { engine.changeState(CSClient::STATE_CONNECTING); });
    ASSERT_TRUE(inCallback.wait());
    const CSClient::OutputDef output{"P", CSClient::TYPE_INT};
    EXPECT_EQ(engine.registerOutputParameters(&output, 1), 0);
    EXPECT_EQ(engine.addCallbackInterface(&b), 1U);
    EXPECT_EQ(engine.getState(), CSClient::STATE_CONNECTING);
    EXPECT_EQ(engine.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(changing.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    goOn.open();
}

TEST_F(CallbackNotification, StillReachesAnInterfaceThatAnotherThreadRemovesMeanwhile) {
    addAll();
    Latch inCallback;
    Latch goOn;
    a.then = [&](const std::string&) {
        inCallback.open();
        goOn.wait();
    };
    auto changing = std::async(std::launch::async, [this] { engine.changeState(CSClient::STATE_CONNECTING); });
    ASSERT_TRUE(inCallback.wait());
    EXPECT_EQ(engine.removeCallbackInterface(&b), 0);
    goOn.open();
    changing.get();
    engine.changeState(CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(log, (Strings{"A state 0->1", "B state 0->1", "C state 0->1", "A state 1->3", "C state 1->3"}));
}

TEST_F(CallbackNotification, OfAStateChangeMayRunBesideOneOfValues) {
    engine.connect();
    engine.addCallbackInterface(&a);
    std::atomic<int> inside{0};
    a.then = [&inside](const std::string& line) {
        if (line == "inputs confirmed" || line == "state 4->3") {
            ++inside;
            EXPECT_TRUE(waitUntil([&inside] { return inside == 2; }));
        }
    };
    auto receiving = std::async(std::launch::async, [this] { engine.receive(kSubscriptionOfNone); });
    EXPECT_TRUE(waitUntil([&inside] { return inside == 1; }));
    engine.forceCloseConnection();
    receiving.get();
    EXPECT_EQ(inside, 2);
}

TEST_F(CallbackNotification, OfValuesComesOnTheWorker) {
    engine.addCallbackInterface(&a);
    std::thread::id worker;
    std::thread::id notifier;
    engine.onMessage = [&worker] { worker = std::this_thread::get_id(); };
    a.then = [&notifier](const std::string& line) {
        if (line == "outputs confirmed") {
            notifier = std::this_thread::get_id();
        }
    };
    engine.probe().queueFrame(kPublicationOfNone);
    {
        EndOnExit end(engine);
        ASSERT_EQ(engine.openConnection(1, 1, nullptr), 0);
        ASSERT_TRUE(a.waitFor("outputs confirmed"));
    }
    EXPECT_EQ(notifier, worker);
    EXPECT_NE(notifier, std::this_thread::get_id());
}

}  // namespace
}  // namespace com_tesk::test
