#include <gtest/gtest.h>

#include "tests/engine/connection/ConnectionFixtures.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

TEST(EngineDefaults, NewEngineIsDisconnected) {
    const ConnectionEngine engine;
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTED);
    EXPECT_EQ(engine.getServerIPAddress(), "0.0.0.0");
    EXPECT_EQ(engine.getServerPort(), 0U);
}

TEST(EngineDefaults, HostIsUnknownBeforeItsFirstAnswer) {
    const ConnectionEngine engine;
    EXPECT_EQ(engine.getServerVersion(), "UNKNOWN");
    EXPECT_EQ(engine.getProtocolVersion(), 0U);
}

TEST(EngineDefaults, NumbersOfStatesAndOptionsArePartOfTheInterface) {
    EXPECT_EQ(static_cast<int>(CSClient::STATE_DISCONNECTED), 0);
    EXPECT_EQ(static_cast<int>(CSClient::STATE_CONNECTING), 1);
    EXPECT_EQ(static_cast<int>(CSClient::STATE_CONNECTED), 2);
    EXPECT_EQ(static_cast<int>(CSClient::STATE_DISCONNECTING), 3);
    EXPECT_EQ(static_cast<int>(CSClient::STATE_READY), 4);
    EXPECT_EQ(static_cast<int>(CSClient::STATE_RECONNECTING), 5);
    EXPECT_EQ(kReconnect, 1U);
    EXPECT_EQ(kSilent, 2U);
    EXPECT_EQ(sizeof(CSClient::State), 4U);
}

TEST(EngineDefaults, ConnectionOptionsAskForTheSystemsBufferSizes) {
    const CSClient::ConnectionOptions connectionOptions;
    EXPECT_EQ(connectionOptions.receiveBufferSize, 0U);
    EXPECT_EQ(connectionOptions.sendBufferSize, 0U);
}

TEST(EngineOptions, AreKeptWithAllTheirBits) {
    EXPECT_EQ(ConnectionEngine(0).getOptions(), 0U);
    EXPECT_EQ(ConnectionEngine(3).getOptions(), 3U);
    EXPECT_EQ(ConnectionEngine(0xFFFFFFFF).getOptions(), 0xFFFFFFFFU);
}

TEST(EngineOptions, EveryBitOfTheMaskMustBeSet) {
    EXPECT_TRUE(ConnectionEngine(3).hasOptions(3));
    EXPECT_TRUE(ConnectionEngine(7).hasOptions(3));
    EXPECT_FALSE(ConnectionEngine(1).hasOptions(3));
    EXPECT_FALSE(ConnectionEngine(2).hasOptions(3));
    EXPECT_FALSE(ConnectionEngine(0).hasOptions(1));
    EXPECT_TRUE(ConnectionEngine(0x80000000).hasOptions(0x80000000));
}

TEST(EngineOptions, EmptyMaskIsAlwaysThere) {
    EXPECT_TRUE(ConnectionEngine(0).hasOptions(0));
    EXPECT_TRUE(ConnectionEngine(3).hasOptions(0));
}

TEST(EngineOptions, OtherBitsHaveNoEffect) {
    const CapturedStreams captured;
    ConnectionEngine engine(0xFFFFFFFC);
    engine.connect();
    engine.closeConnection();
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
}

TEST(EngineDefaults, EngineThatWasNeverOpenedIsDestroyedWithoutClosingAnything) {
    bool destroyed = false;
    int closes = -1;
    {
        ConnectionEngine engine;
        ProbeTransport& probe = engine.probe();
        probe.onDestruction = [&] {
            destroyed = true;
            closes = probe.closeCount();
        };
    }
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(closes, 0);
}

}  // namespace
}  // namespace com_tesk::test
