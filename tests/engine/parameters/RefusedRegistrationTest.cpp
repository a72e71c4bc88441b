#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

std::string tooLong(const std::string& name) {
    return "Length of parameter id string '" + name + "' exceeds maximum 32\n";
}

std::string registered(const std::string& name) {
    return "Parameter '" + name + "' already registered.\n";
}

std::string twice(const std::string& name) {
    return "Parameter '" + name + "' is requested more than once in the same subscription call.\n";
}

template <typename Kind>
class RefusedRegistration : public testing::Test {
  protected:
    struct Row {
        std::vector<Definition> definitions;
        std::string line;
        std::vector<Definition> kept;  ///< In name order.
    };

    /// Registers the definitions of the row. The name R is registered, and its request is ignored.
    static void expectRefusal(EngineOf<Kind>& engine, const Row& row, const std::string& line) {
        SCOPED_TRACE(row.line.substr(0, 200));
        std::vector<std::string> table;
        for (const Definition& definition : row.kept) {
            table.push_back(Kind::row(definition.name));
        }
        table.push_back(Kind::row("R"));
        std::sort(table.begin(), table.end());
        const CapturedStreams streams;
        engine.add({{"R"}});
        engine.ignoreRequestsSoFar();
        EXPECT_EQ(engine.add(row.definitions), 3);
        EXPECT_TRUE(streams.err() == line) << streams.err().substr(0, 200);
        EXPECT_EQ(streams.errInsertions(), line.empty() ? 0 : 1) << "each line is written in one piece";
        EXPECT_EQ(streams.out(), "");
        EXPECT_EQ(engine.table(), table);
        EXPECT_EQ(engine.unconfirmed(), static_cast<int>(table.size()));
        EXPECT_THAT(engine.requests(), IsEmpty());
    }

    const std::string megabyte = std::string(1'000'000, 'y');
    const std::string zeroByte = std::string("A\0B", 3);

    const std::vector<Row> rows = {
        {{{"A", 0}}, Kind::invalidType("A"), {}},
        {{{kName32}}, tooLong(kName32), {}},
        {{{kName33}}, tooLong(kName33), {}},
        {{{megabyte}}, tooLong(megabyte), {}},
        {{{"R"}}, registered("R"), {}},
        {{{"A"}, {"B"}, {"A"}}, twice("A"), {}},
        {{{""}, {""}}, twice(""), {}},
        {{{zeroByte, 0}}, Kind::invalidType(zeroByte), {}},
        {{{zeroByte}, {zeroByte}}, twice(zeroByte), {}},
        {{{"\x80\xFF", 0}}, Kind::invalidType("\x80\xFF"), {}},
        // The definitions before the refused one stay.
        {{{"B"}, {"A"}, {"C"}, {"A"}}, twice("A"), {{"B"}}},
        {{{"A"}, {"R"}, {"C"}}, registered("R"), {{"A"}}},
        {{{"C"}, {"A"}, {"B", 0}, {"D"}}, Kind::invalidType("B"), {{"A"}, {"C"}}},
        {{{"A"}, {kName32}}, tooLong(kName32), {{"A"}}},
        // The call ends at the first refusal. The type is checked first, then the length, the table, and the rest of the call.
        {{{"A", 0}, {"B", 0}}, Kind::invalidType("A"), {}},
        {{{kName32, 0}}, Kind::invalidType(kName32), {}},
        {{{"R", 0}}, Kind::invalidType("R"), {}},
        {{{"A", 0}, {"A", 1}}, Kind::invalidType("A"), {}},
        {{{kName33, 0}, {kName33, 0}}, Kind::invalidType(kName33), {}},
        {{{kName32}, {kName32}}, tooLong(kName32), {}},
        {{{"R"}, {"R"}}, registered("R"), {}},
        {{{"A"}, {"A", 0}}, twice("A"), {}},
        {{{"A"}, {"B", 0}, {"A"}}, twice("A"), {}},
        {{{"B", 0}, {"A"}, {"A"}}, Kind::invalidType("B"), {}},
    };
};
TYPED_TEST_SUITE(RefusedRegistration, Kinds, KindNames);

TYPED_TEST(RefusedRegistration, PrintsALineAndKeepsTheDefinitionsBefore) {
    for (const auto& row : this->rows) {
        EngineOf<TypeParam> engine;
        this->expectRefusal(engine, row, row.line);
    }
}

TYPED_TEST(RefusedRegistration, IsTheSameWithoutConnection) {
    for (const auto& row : this->rows) {
        EngineOf<TypeParam> engine(0, CSClient::STATE_DISCONNECTED);
        this->expectRefusal(engine, row, row.line);
    }
}

TYPED_TEST(RefusedRegistration, PrintsNothingWhenSilent) {
    for (const auto& row : this->rows) {
        EngineOf<TypeParam> engine(kSilent);
        this->expectRefusal(engine, row, "");
    }
}

TYPED_TEST(RefusedRegistration, LeavesDefinitionsThatTheNextReregistrationSends) {
    const CapturedStreams streams;
    EngineOf<TypeParam> engine;
    EXPECT_EQ(engine.add({{"A"}, {"B", 0}}), 3);
    EXPECT_EQ(engine.add({{"A"}}), 3);
    EXPECT_EQ(engine.add({{"C"}}), 0);
    EXPECT_EQ(streams.err(), TypeParam::invalidType("B") + registered("A"));
    engine.reregister();
    EXPECT_EQ(engine.requests(), engine.request({{"C"}}) + engine.request({{"A"}, {"C"}}));
}

TYPED_TEST(RefusedRegistration, OfAConfirmedNameKeepsItsEntry) {
    const CapturedStreams streams;
    EngineOf<TypeParam> engine;
    engine.add({{"A", 1}});
    engine.confirm({{7, "A"}});
    EXPECT_EQ(engine.add({{"A", 2}}), 3);
    EXPECT_EQ(streams.err(), registered("A"));
    EXPECT_THAT(engine.table(), ElementsAre(TypeParam::row("A", "id 7")));
    EXPECT_EQ(engine.ids(), "7=A");
}

TEST(RefusedOutput, KeepsItsPublishedValue) {
    TestEngine engine(1, kSilent);
    engine.registerOutputs({output("A")});
    engine.publish({parameter("A", 1, 0x3F800000)});
    EXPECT_EQ(engine.registerOutputs({output("A", 2)}), 3);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting published 3F800000"));
}

}  // namespace
}  // namespace com_tesk::test
