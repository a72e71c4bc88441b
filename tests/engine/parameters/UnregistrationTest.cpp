#include "tests/engine/parameters/ParameterTest.h"
#include "tests/support/RecordingCallbacks.h"

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
            EXPECT_EQ(each.requests(), isSent ? TypeParam::kEnd(row.sent) : Requests());
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
    EXPECT_EQ(this->engine.ids(), "7=B 9=B");
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
    EXPECT_EQ(this->engine.requests(), TypeParam::kEnd({20, 0}));
    EXPECT_EQ(this->engine.number(true), 2U);
    EXPECT_EQ(this->engine.unconfirmed(), -1);
}

using InputUnregistration = Unregistration<Inputs>;

TEST_F(InputUnregistration, LeavesTheEarlierIdWithItsName) {
    engine.confirm({{20, "A"}});
    engine.remove({"A"});
    EXPECT_EQ(engine.inputIds(), "7=A 9=B");
}

TEST_F(InputUnregistration, EndsUpdates) {
    RecordingCallbacks callbacks;
    engine.addCallbackInterface(&callbacks);
    engine.receive(update(1, {updated(7, 1, "00 00 00 2A")}));
    engine.remove({"A"});
    engine.receive(update(1, {updated(7, 1, "00 00 00 2A")}));
    EXPECT_THAT(callbacks.lines(), ElementsAre("updated A=int:42"));
}

using OutputUnregistration = Unregistration<Outputs>;

TEST_F(OutputUnregistration, IsFollowedByNoConfirmation) {
    engine.remove({"C"});
    engine.confirm({{11, "C"}});
    EXPECT_EQ(streams.err(), "Parameter not found: C(11)\n");
    EXPECT_EQ(engine.outputIds(), "7=A 9=B");
}

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

}  // namespace
}  // namespace com_tesk::test
