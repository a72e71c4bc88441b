#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "tests/client/ClientFixtures.h"

namespace com_tesk::test {
namespace {

using Parameter = CSClient::Parameter;

static_assert(std::is_aggregate_v<Parameter>, "existing programs initialize it with braces");

TEST(ParameterOfANumber, HasTheNumberInItsTypeAndNoOtherBits) {
    const Parameter real = Parameter::ofFloat("ALT", -0.5F);
    EXPECT_EQ(real.name, "ALT");
    EXPECT_EQ(real.type, CSClient::TYPE_FLOAT);
    EXPECT_EQ(real.value.asInt, static_cast<std::int32_t>(0xBF000000U));
    EXPECT_EQ(real.reserved, 0U);
    for (const std::int32_t number : {3, 0, -1, 2147483647, -2147483647 - 1}) {
        const Parameter integer = Parameter::ofInt("GEAR", number);
        EXPECT_EQ(integer.name, "GEAR");
        EXPECT_EQ(integer.type, CSClient::TYPE_INT);
        EXPECT_EQ(integer.value.asInt, number);
        EXPECT_EQ(integer.reserved, 0U);
    }
}

/// An application that is interested in confirmed outputs only.
class OutputsOnly : public CSClient::CallbackAdapter {
  public:
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
        const std::lock_guard<std::mutex> lock(mutex);
        names += outputs.at(0).name;
    }
    std::string confirmed() {
        const std::lock_guard<std::mutex> lock(mutex);
        return names;
    }

  private:
    std::mutex mutex;
    std::string names;
};

TEST(CallbackAdapter, NeedsOnlyTheOperationsThatAnApplicationUses) {
    const LoopbackHost host({});
    OutputsOnly callbacks;
    SimClient client(1, kSilent, std::make_unique<CSCommsInterfaceTCPBuffered>());
    client.addCallbackInterface(&callbacks);
    ASSERT_EQ(client.registerOutputParameter({"GEAR", CSClient::TYPE_INT}), 0);
    ASSERT_EQ(client.registerInputParameter({"GEAR", CSClient::TYPE_INT, 1}), 0);
    ASSERT_EQ(client.open("127.0.0.1", host.port()), 0);
    EXPECT_TRUE(waitUntil([&] { return callbacks.confirmed() == "GEAR"; }));
    EXPECT_EQ(client.publishParameter(Parameter::ofInt("GEAR", 3)), 0);
    EXPECT_TRUE(host.waitForValue("GEAR", HostValue::integer(3), kHostBound));
    EXPECT_EQ(closeWithoutSleeping(client), CSClient::STATE_DISCONNECTED);
}

TEST(OpenWithoutOptions, UsesTheDefaults) {
    for (const bool isText : {false, true}) {
        TestClient client;
        EXPECT_EQ(isText ? client.open("127.0.0.1", 7) : client.open(kAnyAddress, 7), 0);
        FakeTransport& transport = client.probed->fakeTransport();
        ASSERT_TRUE(waitUntil([&] { return !transport.openings().empty(); }));
        const FakeTransport::Opening opening = transport.openings().at(0);
        EXPECT_EQ(opening.address, kAnyAddress);
        EXPECT_EQ(opening.port, 7U);
        EXPECT_EQ(opening.options.receiveBufferSize, 0U);
        EXPECT_EQ(opening.options.sendBufferSize, 0U);
        EXPECT_EQ(closeWithoutSleeping(client), CSClient::STATE_DISCONNECTED);
    }
}

/// Counts the transports that are destroyed.
class OwnedTransport : public testing::Test {
  protected:
    std::unique_ptr<FakeTransport> newTransport() {
        auto transport = std::make_unique<FakeTransport>();
        transport->onDestruction = [this] { ++destructions; };
        return transport;
    }

    int destructions = 0;
};

TEST_F(OwnedTransport, TakenStaysUntilTheClientIsDestroyed) {
    {
        SimClient client(1, kSilent);
        EXPECT_TRUE(client.changeCommsInterface(newTransport()));
        EXPECT_EQ(destructions, 0);
        EXPECT_TRUE(client.changeCommsInterface(newTransport()));
        EXPECT_EQ(destructions, 1);
    }
    EXPECT_EQ(destructions, 2);
}

TEST_F(OwnedTransport, RefusedIsDestroyed) {
    ScriptedSession session;
    ASSERT_NO_FATAL_FAILURE(session.connect());
    EXPECT_FALSE(session.client->changeCommsInterface(newTransport()));
    EXPECT_EQ(destructions, 1);
    EXPECT_EQ(closeWithoutSleeping(*session.client), CSClient::STATE_DISCONNECTED);
}

TEST_F(OwnedTransport, NullIsRefused) {
    SimClient client(1, kSilent);
    EXPECT_FALSE(client.changeCommsInterface(std::unique_ptr<CSCommsInterfaceTCP>()));
    EXPECT_FALSE(client.changeCommsInterface(nullptr)) << "a call of existing programs is not ambiguous";
}

TEST_F(OwnedTransport, OfTheConstructorIsTheTransportThatConnects) {
    std::unique_ptr<FakeTransport> transport = newTransport();
    {
        FakeTransport& given = *transport;
        SimClient client(1, kSilent, std::move(transport));
        EXPECT_EQ(client.open(kAnyAddress, 7), 0);
        EXPECT_TRUE(waitUntil([&] { return given.openings().size() == 1; }));
        EXPECT_EQ(closeWithoutSleeping(client), CSClient::STATE_DISCONNECTED);
        EXPECT_EQ(destructions, 0);
    }
    EXPECT_EQ(destructions, 1);
}

TEST_F(OwnedTransport, NullForTheConstructorKeepsTheStandardTransport) {
    ScriptedHost host;
    SimClient client(1, kSilent, nullptr);
    EXPECT_EQ(client.open(ScriptedHost::address(), host.port()), 0);
    EXPECT_TRUE(host.accept());
    EXPECT_EQ(closeWithoutSleeping(client), CSClient::STATE_DISCONNECTED);
}

}  // namespace
}  // namespace com_tesk::test
