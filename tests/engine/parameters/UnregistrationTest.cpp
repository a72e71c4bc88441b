#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

/// A and B are confirmed as 7 and 9, C is unconfirmed.
template <typename Kind>
class Unregistration : public ParameterTest<Kind> {
  protected:
    Unregistration() { prepare(this->engine); }

    static void prepare(EngineOf<Kind>& engine) {
        engine.add({{"A"}, {"B"}, {"C"}});
        engine.confirm({{7, "A"}, {9, "B"}});
        engine.ignoreRequestsSoFar();
    }
};
TYPED_TEST_SUITE(Unregistration, Kinds, KindNames);

TYPED_TEST(Unregistration, SendsIdsInTheOrderOfTheNamesAndErasesTheEntries) {
    struct Row {
        std::vector<std::string> names;
        std::vector<unsigned int> sent;
        std::vector<std::string> left;
        std::string leftIds;
    };
    const std::string a = TypeParam::row("A", "id 7");
    const std::string b = TypeParam::row("B", "id 9");
    const std::string c = TypeParam::row("C");
    const Row rows[] = {
        {{}, {}, {a, b, c}, "7=A 9=B"},
        {{"X", "Y"}, {}, {a, b, c}, "7=A 9=B"},
        {{"A"}, {7}, {b, c}, "9=B"},
        {{"C"}, {kUnassigned}, {a, b}, "7=A 9=B"},
        {{"C", "B", "A"}, {kUnassigned, 9, 7}, {}, ""},
        {{"X", "B", "a", "", "A"}, {9, 7}, {c}, ""},
        {{"A", "C", "A", "C", "A"}, {7, kUnassigned, 7, kUnassigned, 7}, {b}, "9=B"},
    };
    for (const Row& row : rows) {
        for (const CSClient::State state : {CSClient::STATE_READY, CSClient::STATE_RECONNECTING}) {
            SCOPED_TRACE(testing::PrintToString(row.names));
            EngineOf<TypeParam> each;
            this->prepare(each);
            each.pretendState(state);
            EXPECT_EQ(each.remove(row.names), 0);
            const bool isSent = state == CSClient::STATE_READY && !row.sent.empty();
            EXPECT_EQ(each.requests(), isSent ? this->engine.end(row.sent) : Requests());
            EXPECT_EQ(each.table(), row.left);
            EXPECT_EQ(each.ids(), row.leftIds);
            EXPECT_EQ(each.remove(row.names), 0) << "unknown now";
            EXPECT_EQ(each.requests().size(), isSent ? 1U : 0U);
        }
    }
    EXPECT_EQ(this->printed(), "");
}

TYPED_TEST(Unregistration, OfTwoNamesUnderOneIdErasesTheIdFirst) {
    this->engine.confirm({{7, "B"}});
    this->engine.remove({"A"});
    EXPECT_THAT(this->engine.table(), ElementsAre(TypeParam::row("B", "id 7"), TypeParam::row("C")));
    EXPECT_EQ(this->engine.ids(), "9=B");
    EXPECT_TRUE(this->engine.has("B", true));
}

TYPED_TEST(Unregistration, OfAnUnconfirmedNameErasesTheUnassignedId) {
    this->engine.confirm({{kUnassigned, "B"}});
    EXPECT_EQ(this->engine.ids(), "7=A 9=B 1048575=B");
    EXPECT_FALSE(this->engine.has("B", true));
    this->engine.remove({"C"});
    EXPECT_EQ(this->engine.ids(), "7=A 9=B");
}

TYPED_TEST(Unregistration, LeavesIdsOfEarlierConfirmationsCounted) {
    this->engine.confirm({{20, "A"}, {0, "C"}});
    EXPECT_TRUE(this->engine.has("C", true)) << "0 is an id";
    EXPECT_EQ(this->engine.remove({"A", "C"}), 0);
    EXPECT_EQ(this->engine.requests(), this->engine.end({20, 0}));
    EXPECT_EQ(this->engine.number(true), 2U);
    EXPECT_EQ(this->engine.unconfirmed(), -1);
}

using OutputUnregistration = Unregistration<Outputs>;

TEST_F(OutputUnregistration, LeavesTheEarlierIdToTheNextOutput) {
    engine.confirm({{20, "A"}});
    EXPECT_EQ(engine.outputIds(), "7=A 9=B 20=A");
    engine.remove({"A"});
    EXPECT_EQ(engine.outputIds(), "7=gone 9=B");
    engine.confirm({{7, "C"}});
    EXPECT_EQ(engine.outputIds(), "7=C 9=B");
    engine.remove({"C"});
    EXPECT_EQ(engine.outputIds(), "9=B");
}

TEST_F(OutputUnregistration, OfTwoOutputsUnderOneIdSendsItTwice) {
    engine.confirm({{7, "B"}});
    EXPECT_EQ(engine.remove({"B", "A"}), 0);
    EXPECT_EQ(engine.requests(), outputEnd({7, 7}));
    EXPECT_THAT(engine.outputTable(), ElementsAre("C type 1 waiting 00000000"));
    EXPECT_EQ(engine.outputIds(), "9=gone");
}

TEST_F(OutputUnregistration, LeavesTheOtherOutputOfItsIdPublishable) {
    engine.confirm({{7, "B"}});
    engine.remove({"A"});
    EXPECT_EQ(engine.publish({parameter("B", 1, 0x3F800000)}), 0);
    EXPECT_EQ(engine.requests(), outputEnd({7}) + publication({{7, 0, 0x3F800000}}));
}

template <typename Kind>
class ParameterTable : public ParameterTest<Kind> {
  protected:
    /// All parameters, the confirmed ones, and the unconfirmed ones.
    std::vector<int> numbers() const {
        return {static_cast<int>(this->engine.number(false)), static_cast<int>(this->engine.number(true)),
                this->engine.unconfirmed()};
    }
};
TYPED_TEST_SUITE(ParameterTable, Kinds, KindNames);

TYPED_TEST(ParameterTable, HoldsUnconfirmedAndConfirmedNames) {
    EXPECT_THAT(this->numbers(), ElementsAre(0, 0, 0));
    EXPECT_FALSE(this->engine.has("", false) || this->engine.has("", true));
    this->engine.add({{"A"}, {"B"}, {"C"}});
    EXPECT_THAT(this->numbers(), ElementsAre(3, 0, 3));
    EXPECT_TRUE(this->engine.has("B", false) && !this->engine.has("B", true));
    this->engine.confirm({{7, "B"}});
    EXPECT_THAT(this->numbers(), ElementsAre(3, 1, 2));
    EXPECT_TRUE(this->engine.has("B", false) && this->engine.has("B", true));
    EXPECT_TRUE(this->engine.has("A", false) && !this->engine.has("A", true));
    EXPECT_FALSE(this->engine.has("b", false) || this->engine.has("b", true));
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

TEST_F(ParameterTables, OfInputsAndOutputsMayHaveTheSameNames) {
    EXPECT_EQ(engine.registerInputs({input("C")}), 0);
    EXPECT_EQ(engine.registerOutputs({output("A")}), 0);
    EXPECT_EQ(engine.unregisterInputParameters({"A"}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({"C"}), 0);
    EXPECT_TRUE(engine.hasInputParameter("C", false) && engine.hasOutputParameter("A", false));
    EXPECT_FALSE(engine.hasInputParameter("A", false) || engine.hasOutputParameter("C", false));
}

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
