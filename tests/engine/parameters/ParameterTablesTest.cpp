#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

template <typename Kind>
class ParameterTable : public ParameterTest<Kind> {
  protected:
    void expectNumbers(unsigned int all, unsigned int confirmed, int unconfirmed) const {
        EXPECT_EQ(this->engine.number(false), all);
        EXPECT_EQ(this->engine.number(true), confirmed);
        EXPECT_EQ(this->engine.unconfirmed(), unconfirmed);
    }
    void expectFound(const std::string& name, bool isRegistered, bool isConfirmed) const {
        EXPECT_EQ(this->engine.has(name, false), isRegistered) << name;
        EXPECT_EQ(this->engine.has(name, true), isConfirmed) << name;
    }
};
TYPED_TEST_SUITE(ParameterTable, Kinds, KindNames);

TYPED_TEST(ParameterTable, IsEmptyAtFirst) {
    this->expectNumbers(0, 0, 0);
    this->expectFound("A", false, false);
    this->expectFound("", false, false);
}

TYPED_TEST(ParameterTable, HoldsUnconfirmedAndConfirmedNames) {
    this->engine.add({{"A"}, {"B"}, {"C"}});
    this->expectNumbers(3, 0, 3);
    this->expectFound("B", true, false);
    this->engine.confirm({{7, "B"}});
    this->expectNumbers(3, 1, 2);
    this->expectFound("B", true, true);
    this->expectFound("A", true, false);
    this->expectFound("b", false, false);
}

TYPED_TEST(ParameterTable, CountsTheUnassignedIdButShowsNoConfirmation) {
    this->engine.add({{"A"}, {"B"}, {"C"}});
    this->engine.confirm({{1048574, "A"}, {1048575, "B"}, {1048576, "C"}});
    this->expectNumbers(3, 3, 0);
    this->expectFound("A", true, true);
    this->expectFound("B", true, false);
    this->expectFound("C", true, true);
}

TYPED_TEST(ParameterTable, CountsFreshIdsBelowZero) {
    this->engine.add({{"A"}, {"B"}, {"C"}});
    this->engine.confirm({{1, "A"}, {2, "B"}, {3, "C"}});
    this->engine.confirm({{11, "A"}});
    this->engine.confirm({{12, "B"}});
    EXPECT_EQ(this->engine.ids(), "1=A 2=B 3=C 11=A 12=B");
    this->expectNumbers(3, 5, -2);
}

/// Inputs A and B, of which A is confirmed, and outputs C and D, of which C has two ids.
class ParameterTables : public testing::Test {
  protected:
    ParameterTables() {
        engine.registerInputs({input("A"), input("B")});
        engine.registerOutputs({output("C"), output("D")});
        engine.receive(inputsConfirmed({{1, "A"}}));
        engine.receive(outputsConfirmed({{2, "C"}, {3, "C"}}));
    }

    void expectEmpty() const {
        EXPECT_THAT(engine.inputTable(), IsEmpty());
        EXPECT_EQ(engine.inputIds(), "");
        EXPECT_THAT(engine.outputTable(), IsEmpty());
        EXPECT_EQ(engine.outputIds(), "");
    }

    CapturedStreams streams;
    TestEngine engine;
};

TEST_F(ParameterTables, AreSeparateAndErasedSilently) {
    EXPECT_EQ(engine.getNumberOfInputParameters(true), 1U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(true), 2U);
    EXPECT_FALSE(engine.hasInputParameter("C", false));
    EXPECT_FALSE(engine.hasOutputParameter("A", false));
    engine.pretendState(CSClient::STATE_READY);
    engine.unregisterAllLocalParameters();
    expectEmpty();
    EXPECT_THAT(engine.requests(), IsEmpty());
    EXPECT_EQ(streams.out() + streams.err(), "");
    engine.unregisterAllLocalParameters();
    EXPECT_EQ(engine.registerOutputs({output("A")}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000"));
}

TEST_F(ParameterTables, AreErasedWithTheIdsOfUnregisteredOutputs) {
    engine.unregisterOutputParameters({"C"});
    EXPECT_EQ(engine.outputIds(), "2=gone");
    engine.unregisterAllLocalParameters();
    expectEmpty();
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), 0);
}

TEST_F(ParameterTables, AreErasedWhenTheConnectionHasEnded) {
    for (const CSClient::State state :
         {CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED, CSClient::STATE_RECONNECTING,
          CSClient::STATE_CONNECTING, CSClient::STATE_CONNECTED}) {
        engine.changeState(state);
        EXPECT_EQ(engine.getNumberOfInputParameters(false), 2U) << state;
        EXPECT_EQ(engine.getNumberOfOutputParameters(false), 2U) << state;
    }
    engine.ignoreRequestsSoFar();
    engine.forceCloseConnection();
    EXPECT_EQ(engine.getState(), CSClient::STATE_DISCONNECTING);
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 2U) << "not before the state is 0";
    engine.changeState(CSClient::STATE_DISCONNECTED);
    expectEmpty();
    EXPECT_THAT(engine.requests(), IsEmpty());
}

}  // namespace
}  // namespace com_tesk::test
