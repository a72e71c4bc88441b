#include <gtest/gtest.h>

#include "tests/client/ProbedClient.h"
#include "tests/support/RecordingCallbacks.h"

namespace com_tesk::test {
namespace {

using Interfaces = std::set<CSClient::CallbackIface*>;

TEST(CallbackForwarding, AnInterfaceIsAddedOnce) {
    ProbedClient client;
    RecordingCallbacks callbacks;
    EXPECT_EQ(client.addCallbackInterface(&callbacks), 1U);
    EXPECT_EQ(client.addCallbackInterface(&callbacks), 0U);
    EXPECT_EQ(client.getNumCallbackInterfaces(), 1);
}

TEST(CallbackForwarding, NullIsNotAdded) {
    ProbedClient client;
    EXPECT_EQ(client.addCallbackInterface(nullptr), 0U);
    EXPECT_EQ(client.getNumCallbackInterfaces(), 0);
    EXPECT_FALSE(client.hasCallbackInterface(nullptr));
}

TEST(CallbackForwarding, AnInterfaceIsThereFromAddingToRemoving) {
    ProbedClient client;
    RecordingCallbacks callbacks;
    EXPECT_FALSE(client.hasCallbackInterface(&callbacks));
    client.addCallbackInterface(&callbacks);
    EXPECT_TRUE(client.hasCallbackInterface(&callbacks));
    EXPECT_EQ(client.removeCallbackInterface(&callbacks), 0);
    EXPECT_FALSE(client.hasCallbackInterface(&callbacks));
    EXPECT_EQ(client.getNumCallbackInterfaces(), 0);
}

TEST(CallbackForwarding, RemovingAStrangerReturnsZero) {
    ProbedClient client;
    RecordingCallbacks callbacks;
    RecordingCallbacks stranger;
    client.addCallbackInterface(&callbacks);
    EXPECT_EQ(client.removeCallbackInterface(&stranger), 0);
    EXPECT_EQ(client.getNumCallbackInterfaces(), 1);
}

TEST(CallbackForwarding, TheSetOfInterfacesReplacesWhatTheCallerHad) {
    ProbedClient client;
    RecordingCallbacks first;
    RecordingCallbacks second;
    RecordingCallbacks stranger;
    client.addCallbackInterface(&first);
    client.addCallbackInterface(&second);
    Interfaces interfaces{&stranger};
    EXPECT_EQ(client.getCallbackInterfaces(interfaces), 0);
    EXPECT_EQ(interfaces, (Interfaces{&first, &second}));
}

TEST(CallbackForwarding, WithoutInterfacesTheSetIsEmptied) {
    ProbedClient client;
    RecordingCallbacks stranger;
    Interfaces interfaces{&stranger};
    EXPECT_EQ(client.getCallbackInterfaces(interfaces), 0);
    EXPECT_TRUE(interfaces.empty());
}

TEST(CallbackForwarding, AnAddedInterfaceHearsOfConfirmationsAndValues) {
    ProbedClient client;
    RecordingCallbacks callbacks;
    client.addCallbackInterface(&callbacks);
    client.registerInputParameter({"A", CSClient::TYPE_FLOAT, 1});
    client.registerOutputParameter({"B", CSClient::TYPE_FLOAT});
    client.probed->receive(inputConfirmation(7, "A"));
    client.probed->receive(outputConfirmation(8, "B"));
    EXPECT_EQ(callbacks.lines(), (Lines{"inputs confirmed A", "updated A=float:1.5", "outputs confirmed B"}));
}

TEST(CallbackForwarding, ARemovedInterfaceHearsNothing) {
    ProbedClient client;
    RecordingCallbacks callbacks;
    client.addCallbackInterface(&callbacks);
    client.removeCallbackInterface(&callbacks);
    client.probed->receive(outputConfirmation(8, "B"));
    EXPECT_EQ(callbacks.lines(), Lines{});
}

}  // namespace
}  // namespace com_tesk::test
