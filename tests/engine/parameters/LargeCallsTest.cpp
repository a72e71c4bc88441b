#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kCount = 10'000;

/// "P10000" to "P19999": in name order and in number order.
std::string numberedName(unsigned int index) {
    return "P" + std::to_string(10'000 + index);
}

template <typename Kind>
class LargeCalls : public ParameterTest<Kind> {
  protected:
    LargeCalls() {
        for (unsigned int i = 0; i < kCount; ++i) {
            names.push_back(numberedName(i));
            definitions.push_back({names.back()});
        }
    }

    /// The requests are not printed, because they are long.
    void expectRequests(const Requests& expected) const { EXPECT_TRUE(this->engine.requests() == expected); }

    std::vector<std::string> names;
    std::vector<Definition> definitions;
};
TYPED_TEST_SUITE(LargeCalls, Kinds, KindNames);

TYPED_TEST(LargeCalls, RegisterInOneRequestAndAgainInOne) {
    EXPECT_EQ(this->engine.add(this->definitions), 0);
    EXPECT_EQ(this->engine.unconfirmed(), 10'000);
    const Requests request = this->engine.request(this->definitions);
    this->expectRequests(request);
    this->engine.reregister();
    this->expectRequests(request + request);
    EXPECT_EQ(this->engine.unconfirmed(), 10'000);
}

TYPED_TEST(LargeCalls, AreRefusedAtTheirLastDefinitions) {
    struct Row {
        Definition last;
        std::string line;
        unsigned int kept;
    };
    const Row rows[] = {
        {{"P10000"}, "Parameter 'P10000' is requested more than once in the same subscription call.\n", 0},
        {{"P19998"}, "Parameter 'P19998' is requested more than once in the same subscription call.\n", 9'998},
        {{"P19999", 0}, TypeParam::invalidType("P19999"), 9'999},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.last.name);
        const CapturedStreams captured;
        EngineOf<TypeParam> fresh;
        this->definitions.back() = row.last;
        EXPECT_EQ(fresh.add(this->definitions), 3);
        EXPECT_EQ(captured.err(), row.line);
        EXPECT_EQ(fresh.number(false), row.kept);
        EXPECT_THAT(fresh.requests(), IsEmpty());
    }
}

TYPED_TEST(LargeCalls, UnregisterInOneRequest) {
    this->engine.add(this->definitions);
    EXPECT_EQ(this->engine.remove(this->names), 0);
    EXPECT_EQ(this->engine.number(false), 0U);
    this->engine.add(this->definitions);
    this->engine.removeAll();
    EXPECT_EQ(this->engine.number(false), 0U);
    this->engine.add(this->definitions);
    EXPECT_EQ(this->engine.remove(std::vector<std::string>(kCount, "P10000")), 0);
    EXPECT_EQ(this->engine.number(false), kCount - 1);
    const Requests each =
        this->engine.request(this->definitions) + TypeParam::kEnd(std::vector<unsigned int>(kCount, kUnassigned));
    this->expectRequests(each + each + each);
}

using LargePublication = LargeCalls<Outputs>;

TEST_F(LargePublication, IsOneRequestOrNone) {
    engine.add(definitions);
    engine.ignoreRequestsSoFar();
    std::vector<CSClient::Parameter> parameters;
    std::vector<SentValue> values;
    for (unsigned int i = 0; i < kCount; ++i) {
        parameters.push_back(parameter(names[i], 1, i));
        values.push_back({kUnassigned, 0, i});
    }
    EXPECT_EQ(engine.publish(parameters), 0);
    expectRequests(publication(values));
    const std::vector<std::string> table = engine.outputTable();
    for (CSClient::Parameter& each : parameters) {
        each = parameter(each.name, 1, 7);
    }
    parameters.back().name = "X";
    EXPECT_EQ(engine.publish(parameters), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: X\n");
    expectRequests(publication(values));
    EXPECT_TRUE(engine.outputTable() == table);
}

}  // namespace
}  // namespace com_tesk::test
