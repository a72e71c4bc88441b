#include <gtest/gtest.h>

#include <set>

#include "tests/client/ClientFixtures.h"

namespace com_tesk::test {
namespace {

using Interfaces = std::set<CSClient::CallbackIface*>;

TEST(QueryForwarding, ClientVersionNeedsNoObject) {
    EXPECT_STREQ(CSClient::getClientVersion(), "4.4.132");
}

TEST(QueryForwarding, OptionsAreSetOnlyWhenAllBitsAre) {
    for (const unsigned int options : {0U, 1U, 2U, 3U, 0x80000003U}) {
        const TestClient client(options);
        EXPECT_EQ(client.getOptions(), options);
        for (const unsigned int mask : {0U, 1U, 2U, 3U, 7U}) {
            EXPECT_EQ(client.hasOptions(mask), (options & mask) == mask) << options << " " << mask;
        }
    }
}

TEST(QueryForwarding, HostIsThatOfTheEngine) {
    TestClient client;
    EXPECT_EQ(client.getServerVersion(), "UNKNOWN");
    EXPECT_EQ(client.getProtocolVersion(), 0U);
    EXPECT_EQ(client.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(client.getServerPort(), 0U);
    client.probed->receive(versionResponse(0x00010000, "Host 2.1", 65538));
    client.probed->pretendAddress(0x0302010AU, 70000);
    EXPECT_EQ(client.getServerVersion(), "Host 2.1");
    EXPECT_EQ(client.getProtocolVersion(), 65538U);
    EXPECT_EQ(client.getServerIPAddress(), "10.1.2.3");
    EXPECT_EQ(client.getServerPort(), 70000U);
}

template <typename Kind>
class QueryForwardingOfParameters : public ForEachKind<Kind> {
  protected:
    /// Expects that nothing of the other kind is counted.
    void expectCounts(int confirmed, int unconfirmed) {
        EXPECT_EQ(Kind::confirmed(this->client), confirmed);
        EXPECT_EQ(Kind::unconfirmed(this->client), unconfirmed);
        EXPECT_EQ(ForEachKind<Kind>::OtherKind::confirmed(this->client), 0);
        EXPECT_EQ(ForEachKind<Kind>::OtherKind::unconfirmed(this->client), 0);
    }
};

TYPED_TEST_SUITE(QueryForwardingOfParameters, Kinds, KindNames);

TYPED_TEST(QueryForwardingOfParameters, CountsConfirmedAndUnconfirmed) {
    this->expectCounts(0, 0);
    const std::vector definitions{TypeParam::define("A"), TypeParam::define("B"), TypeParam::define("C")};
    TypeParam::registerMany(this->client, definitions);
    this->expectCounts(0, 3);
    this->confirm(7, "B");
    this->expectCounts(1, 2);
    for (const unsigned int id : {8U, 9U, 10U}) {
        this->confirm(id, "B");
    }
    this->expectCounts(4, -1);
}

TYPED_TEST(QueryForwardingOfParameters, IsRegisteredOnceConfirmed) {
    using Other = typename TestFixture::OtherKind;
    TypeParam::registerOne(this->client, TypeParam::define("A"));
    Other::registerOne(this->client, Other::define("other"));
    this->client.probed->receive(Other::confirmation(3, "other"));
    EXPECT_FALSE(TypeParam::isConfirmed(this->client, "A"));
    this->confirm(7, "A");
    EXPECT_TRUE(TypeParam::isConfirmed(this->client, "A"));
    EXPECT_FALSE(TypeParam::isConfirmed(this->client, "a"));
    EXPECT_FALSE(TypeParam::isConfirmed(this->client, "other"));
}

class CallbackForwarding : public testing::Test {
  protected:
    RecordingCallbacks callbacks;
    RecordingCallbacks other;
    TestClient client;
};

TEST_F(CallbackForwarding, AddsAnInterfaceOnceAndRemovesIt) {
    Interfaces interfaces{&other};
    EXPECT_EQ(client.getCallbackInterfaces(interfaces), 0);
    EXPECT_EQ(interfaces, Interfaces{});
    EXPECT_EQ(client.addCallbackInterface(nullptr), 0U);
    EXPECT_FALSE(client.hasCallbackInterface(nullptr));
    EXPECT_FALSE(client.hasCallbackInterface(&callbacks));
    EXPECT_EQ(client.addCallbackInterface(&callbacks), 1U);
    EXPECT_EQ(client.addCallbackInterface(&callbacks), 0U);
    EXPECT_TRUE(client.hasCallbackInterface(&callbacks));
    EXPECT_EQ(client.removeCallbackInterface(&other), 0) << "it was not added";
    EXPECT_EQ(client.getNumCallbackInterfaces(), 1);
    interfaces = {&other};
    EXPECT_EQ(client.getCallbackInterfaces(interfaces), 0);
    EXPECT_EQ(interfaces, Interfaces{&callbacks});
    EXPECT_EQ(client.removeCallbackInterface(&callbacks), 0);
    EXPECT_FALSE(client.hasCallbackInterface(&callbacks));
    EXPECT_EQ(client.getNumCallbackInterfaces(), 0);
}

TEST_F(CallbackForwarding, NotifiesAnInterfaceUntilItsRemoval) {
    client.addCallbackInterface(&callbacks);
    client.registerInputParameter(input("A"));
    client.registerOutputParameter(output("B"));
    client.probed->receive(inputConfirmation(1, {confirmedInput(7, 0, "3F C0 00 00", "A")}));
    client.probed->receive(outputsConfirmed({{8, "B"}}));
    client.removeCallbackInterface(&callbacks);
    client.probed->receive(outputsConfirmed({{8, "B"}}));
    EXPECT_EQ(callbacks.lines(), (Lines{"inputs confirmed A", "updated A=float:1.5", "outputs confirmed B"}));
}

}  // namespace
}  // namespace com_tesk::test
