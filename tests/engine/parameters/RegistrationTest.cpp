#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

template <typename Kind>
class Registration : public ParameterTest<Kind> {};
TYPED_TEST_SUITE(Registration, Kinds, KindNames);

TYPED_TEST(Registration, OfNothingDoesNothing) {
    EXPECT_EQ(this->engine.add({}), 0);
    EXPECT_THAT(this->engine.requests(), IsEmpty());
    EXPECT_EQ(this->printed(), "");
}

TYPED_TEST(Registration, SendsOneRequestInTheOrderOfTheCall) {
    EXPECT_EQ(this->engine.add({{"C", 2}, {"A", 1}, {"B", 2}}), 0);
    EXPECT_EQ(this->engine.requests(), this->engine.request({{"C", 2}, {"A", 1}, {"B", 2}}));
    EXPECT_THAT(this->engine.table(),
                ElementsAre(TypeParam::row("A"), TypeParam::row("B", "waiting", 2), TypeParam::row("C", "waiting", 2)))
        << "in name order";
    EXPECT_EQ(this->engine.ids(), "");
    EXPECT_EQ(this->engine.inputsByName().size() + this->engine.outputsByName().size(), 3U) << "none of the other kind";
    EXPECT_EQ(this->printed(), "");
}

TYPED_TEST(Registration, DistinguishesLetterCase) {
    EXPECT_EQ(this->engine.add({{"a"}, {"A"}}), 0);
    EXPECT_THAT(this->engine.table(), ElementsAre(TypeParam::row("A"), TypeParam::row("a")));
}

TYPED_TEST(Registration, AcceptsANameOfThirtyOneCharacters) {
    EXPECT_EQ(this->engine.add({{kName31}}), 0);
    EXPECT_EQ(this->engine.requests(), this->engine.request({{kName31}}));
}

TYPED_TEST(Registration, AcceptsAnyTypeButZero) {
    EXPECT_EQ(this->engine.add({{"A", 3}, {"B", 5}, {"C", 0xFFFFFFFF}}), 0);
    EXPECT_THAT(this->engine.table(), ElementsAre(TypeParam::row("A", "waiting", 3), TypeParam::row("B", "waiting", 5),
                                                  TypeParam::row("C", "waiting", 0xFFFFFFFF)));
    EXPECT_EQ(this->engine.requests(), this->engine.request({{"A"}, {"B"}, {"C"}})) << "none as an integer";
}

TYPED_TEST(Registration, OfAnUnregisteredNameMayDiffer) {
    this->engine.add({{"A", 1}});
    this->engine.confirm({{7, "A"}});
    this->engine.publish({parameter("A", 1, 0x3F800000)});
    this->engine.remove({"A"});
    EXPECT_EQ(this->engine.add({{"A", 2}}), 0);
    EXPECT_THAT(this->engine.table(), ElementsAre(TypeParam::row("A", "waiting", 2)));
    EXPECT_EQ(this->engine.ids(), "");
}

TYPED_TEST(Registration, WithoutConnectionSendsNothing) {
    for (const CSClient::State state : {CSClient::STATE_DISCONNECTED, CSClient::STATE_CONNECTING,
                                        CSClient::STATE_DISCONNECTING, CSClient::STATE_RECONNECTING}) {
        EngineOf<TypeParam> unconnected(0, state);
        EXPECT_EQ(unconnected.add({{"A"}}), 0);
        EXPECT_THAT(unconnected.table(), ElementsAre(TypeParam::row("A")));
        EXPECT_THAT(unconnected.requests(), IsEmpty());
    }
    EXPECT_EQ(this->printed(), "");
}

TYPED_TEST(Registration, IsSentBeforeTheConnectionIsReady) {
    this->engine.pretendState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(this->engine.add({{"A"}}), 0);
    EXPECT_EQ(this->engine.requests(), this->engine.request({{"A"}}));
}

TEST(InputsAndOutputs, MayHaveTheSameName) {
    TestEngine engine;
    EXPECT_EQ(engine.registerInputs({input("A")}), 0);
    EXPECT_EQ(engine.registerOutputs({output("A")}), 0);
    EXPECT_EQ(engine.unregisterInputParameters({"A"}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000"));
    EXPECT_EQ(engine.registerInputs({input("A")}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({"A"}), 0);
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
}

class RegistrationRequest : public testing::Test {
  protected:
    RegistrationRequest() { engine.pretendState(CSClient::STATE_READY); }

    TestEngine engine{0x7FFF};
};

TEST_F(RegistrationRequest, OfInputsHasTheRateOfEachModeTwice) {
    engine.registerInputs({input("C", 2, 3), input("A", 1, 2), input("B", 2, 1)});
    EXPECT_EQ(engine.requests(), requestOf("04 02 7F FF 00 00 00 98 00 7F 00 01 7F FF 00 00 00 00 00 03"
                                           "00 01 D4 C0 00 01 D4 C0 00 00 00 01" +
                                           hexField("C") + "00 00 00 00 00 00 00 00 00 00 00 00" + hexField("A") +
                                           "00 00 2E E0 00 00 2E E0 00 00 00 01" + hexField("B")));
}

TEST_F(RegistrationRequest, OfInputsHasRateZeroForUnknownModes) {
    engine.registerInputs({input("A", 1, 0), input("B", 2, 4), input("C", 1, 0xFFFFFFFF), input("D", 1, 7)});
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 0 waiting", "B type 2 mode 4 waiting",
                                                 "C type 1 mode 4294967295 waiting", "D type 1 mode 7 waiting"));
    EXPECT_EQ(engine.requests(), requestOf("04 02 7F FF 00 00 00 C4 00 7F 00 01 7F FF 00 00 00 00 00 04"
                                           "00 00 00 00 00 00 00 00 00 00 00 00" +
                                           hexField("A") + "00 00 00 00 00 00 00 00 00 00 00 01" + hexField("B") +
                                           "00 00 00 00 00 00 00 00 00 00 00 00" + hexField("C") +
                                           "00 00 00 00 00 00 00 00 00 00 00 00" + hexField("D")));
}

TEST_F(RegistrationRequest, OfOutputsHasOneRateAndTheTypes) {
    engine.registerOutputs({output("C", 2), output("A", 1), output("B", 2)});
    EXPECT_EQ(engine.requests(), requestOf("04 02 7F FF 00 00 00 8C 00 7F 00 02 7F FF 00 00 00 00 00 03"
                                           "00 00 04 B0 00 00 00 01" +
                                           hexField("C") + "00 00 04 B0 00 00 00 00" + hexField("A") +
                                           "00 00 04 B0 00 00 00 01" + hexField("B")));
}

}  // namespace
}  // namespace com_tesk::test
