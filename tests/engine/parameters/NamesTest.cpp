#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

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
        EXPECT_EQ(this->engine.requests(), this->engine.request({{name}}) + TypeParam::kEnd({7}));
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
