#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

template <typename Kind>
class Registration : public ParameterTest<Kind> {};
TYPED_TEST_SUITE(Registration, Kinds, KindNames);

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

TYPED_TEST(RefusedRegistration, PrintsALineUnlessSilentAndKeepsTheDefinitionsBefore) {
    for (const auto& row : this->rows) {
        EngineOf<TypeParam> engine;
        this->expectRefusal(engine, row, row.line);
        EngineOf<TypeParam> unconnected(0, CSClient::STATE_DISCONNECTED);
        this->expectRefusal(unconnected, row, row.line);
        EngineOf<TypeParam> silent(kSilent);
        this->expectRefusal(silent, row, "");
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

const std::string kZeroB("A\0B", 3);
const std::string kZeroC("A\0C", 3);
const char kHigh[] = "\x80\xFF";

template <typename Kind>
class Names : public ParameterTest<Kind> {};
TYPED_TEST_SUITE(Names, Kinds, KindNames);

TYPED_TEST(Names, MayBeEmptyOrHaveHighBytes) {
    for (const std::string name : {"", kHigh}) {
        this->engine.ignoreRequestsSoFar();
        EXPECT_EQ(this->engine.add({{name}}), 0);
        this->engine.confirm({{7, name}});
        EXPECT_TRUE(this->engine.has(name, true));
        EXPECT_THAT(this->engine.table(), ElementsAre(TypeParam::row(name, "id 7")));
        EXPECT_EQ(this->engine.ids(), "7=" + name);
        EXPECT_EQ(this->engine.remove({name}), 0);
        EXPECT_THAT(this->engine.table(), IsEmpty());
        EXPECT_EQ(this->engine.requests(), this->engine.request({{name}}) + this->engine.end({7}));
    }
}

TYPED_TEST(Names, DifferAfterAZeroByte) {
    EXPECT_EQ(this->engine.add({{kZeroB}, {kZeroC}, {"A"}}), 0);
    EXPECT_THAT(this->engine.table(), ElementsAre(TypeParam::row("A"), TypeParam::row(kZeroB), TypeParam::row(kZeroC)));
    EXPECT_FALSE(this->engine.has(std::string("A\0", 2), false));
    EXPECT_EQ(this->engine.add({{kZeroC}}), 3);
    EXPECT_EQ(this->streams.err(), "Parameter '" + kZeroC + "' already registered.\n");
    EXPECT_EQ(this->engine.remove({kZeroB}), 0);
    EXPECT_THAT(this->engine.table(), ElementsAre(TypeParam::row("A"), TypeParam::row(kZeroC)));
}

TYPED_TEST(Names, AreSentUpToTheFirstZeroByte) {
    this->engine.add({{kZeroB}});
    EXPECT_EQ(this->engine.requests(), this->engine.request({{"A"}}));
    this->engine.confirm({{7, "A"}});
    EXPECT_FALSE(this->engine.has(kZeroB, true));
}

TYPED_TEST(Names, CountZeroBytesInTheirLength) {
    const std::string name32 = "A" + std::string(31, '\0');
    EXPECT_EQ(this->engine.add({{name32.substr(0, 31)}}), 0);
    EXPECT_EQ(this->engine.add({{name32}}), 3);
    EXPECT_EQ(this->streams.err(), "Length of parameter id string '" + name32 + "' exceeds maximum 32\n");
}

TYPED_TEST(Names, AreOrderedByBytesAndLength) {
    this->engine.add({{"\xFF"}, {"AB"}, {"\x80"}, {kZeroB}, {"\x7F"}, {""}, {"A"}, {"a"}, {"A "}, {"\xC3\xA4"}});
    std::vector<std::string> rows;
    for (const std::string& name :
         {std::string(), std::string("A"), kZeroB, std::string("A "), std::string("AB"), std::string("a"),
          std::string("\x7F"), std::string("\x80"), std::string("\xC3\xA4"), std::string("\xFF")}) {
        rows.push_back(TypeParam::row(name));
    }
    EXPECT_EQ(this->engine.table(), rows);
}

TYPED_TEST(Names, OfHighBytesAreSentInByteOrder) {
    std::vector<Definition> ascending;
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        ascending.push_back({std::string(1, static_cast<char>(byte))});
    }
    EXPECT_EQ(this->engine.add({ascending.rbegin(), ascending.rend()}), 0);
    this->engine.ignoreRequestsSoFar();
    this->engine.reregister();
    EXPECT_EQ(this->engine.requests(), this->engine.request(ascending));
}

}  // namespace
}  // namespace com_tesk::test
