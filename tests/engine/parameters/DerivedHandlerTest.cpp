// What the message handlers of a derived protocol can do with the engine.

#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

/// A protocol with messages of its own.
class DerivedEngine : public TestEngine {
  public:
    using CSClientProtocol::confirmInputParameter;
    using CSClientProtocol::confirmOutputParameter;
    using CSClientProtocol::notifyCallbackInterfaces;
    using CSClientProtocol::storeServerVersion;
};

TEST(DerivedHandlers, ConfirmAnInput) {
    DerivedEngine engine;
    engine.registerInputs({{"A", CSClient::TYPE_FLOAT, 1}});
    EXPECT_FALSE(engine.hasInputParameter("A", true));
    EXPECT_TRUE(engine.confirmInputParameter("A", 7));
    EXPECT_TRUE(engine.hasInputParameter("A", true));
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 0);
    EXPECT_FALSE(engine.confirmInputParameter("B", 8));
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 1U);
}

TEST(DerivedHandlers, ConfirmAnOutputWhichThenHasItsId) {
    DerivedEngine engine;
    engine.connect();
    engine.registerOutputs({{"A", CSClient::TYPE_INT}});
    EXPECT_TRUE(engine.confirmOutputParameter("A", 0x12345678));
    EXPECT_TRUE(engine.hasOutputParameter("A", true));
    EXPECT_FALSE(engine.confirmOutputParameter("B", 8));
    engine.ignoreRequestsSoFar();
    CSClient::Parameter value = CSClient::Parameter::ofInt("A", 3);
    ASSERT_EQ(engine.publish({value}), 0);
    ASSERT_EQ(engine.requests().size(), 1U);
    EXPECT_NE(engine.requests()[0].find("12 34 56 78 00 00 00 01 00 00 00 03"), std::string::npos)
        << engine.requests()[0];
}

TEST(DerivedHandlers, NotifyEachCallbackInterface) {
    DerivedEngine engine;
    CSClient::CallbackAdapter callbacks[2];
    engine.addCallbackInterface(&callbacks[1]);
    engine.addCallbackInterface(&callbacks[0]);
    std::vector<CSClient::CallbackIface*> notified;
    engine.notifyCallbackInterfaces([&](CSClient::CallbackIface& one) { notified.push_back(&one); });
    EXPECT_EQ(notified, (std::vector<CSClient::CallbackIface*>{&callbacks[0], &callbacks[1]})) << "in pointer order";
}

TEST(DerivedHandlers, StoreTheVersionOfTheHost) {
    DerivedEngine engine;
    EXPECT_EQ(engine.getServerVersion(), "UNKNOWN");
    engine.storeServerVersion("a host", 9);
    EXPECT_EQ(engine.getServerVersion(), "a host");
    EXPECT_EQ(engine.getProtocolVersion(), 9U);
}

}  // namespace
}  // namespace com_tesk::test
