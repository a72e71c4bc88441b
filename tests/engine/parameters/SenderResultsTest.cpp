#include <limits>
#include <new>

#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

constexpr int kResults[] = {
    0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 0x104, -1, -4, std::numeric_limits<int>::min(),
};

/// The senders of a derived protocol may return any number. A is confirmed as 7, and B is unconfirmed.
template <typename Kind>
class SenderResult : public testing::Test {
  protected:
    void prepare(EngineOf<Kind>& engine, int result) {
        engine.add({{"A"}, {"B"}});
        engine.confirm({{7, "A"}});
        calls.clear();
        engine.onSend = [this, result](const std::string& call) {
            calls.push_back(call);
            return result;
        };
    }

    const std::string suffix = Kind::kWord + std::string("s");
    const std::vector<std::string> rows = {Kind::row("A", "id 7"), Kind::row("B")};
    std::vector<std::string> calls;
};
TYPED_TEST_SUITE(SenderResult, Kinds, KindNames);

TYPED_TEST(SenderResult, IsReturnedByRegistrationAndUnregistration) {
    for (const int result : kResults) {
        EngineOf<TypeParam> engine(kSilent);
        this->prepare(engine, result);
        EXPECT_EQ(engine.add({{"D"}, {"C"}}), result);
        EXPECT_EQ(engine.remove({"X"}), result);
        engine.reregister();
        EXPECT_THAT(this->calls, ElementsAre("register " + this->suffix + " D C", "unregister " + this->suffix,
                                             "register " + this->suffix + " A B C D"));
        EXPECT_EQ(engine.number(false), 4U) << "no result erases new entries";
    }
}

TYPED_TEST(SenderResult, OfZeroOrFourErasesTheEntries) {
    for (const int result : kResults) {
        SCOPED_TRACE(result);
        EngineOf<TypeParam> engine;
        this->prepare(engine, result);
        EXPECT_EQ(engine.remove({"B", "A"}), result);
        EXPECT_THAT(this->calls, ElementsAre("unregister " + this->suffix + " B A"));
        if (result == 0 || result == 4) {
            EXPECT_THAT(engine.table(), IsEmpty());
            EXPECT_EQ(engine.ids(), "");
        } else {
            EXPECT_EQ(engine.table(), this->rows);
            EXPECT_EQ(engine.ids(), "7=A");
            this->calls.clear();
            engine.removeAll();
            EXPECT_THAT(this->calls, ElementsAre("unregister " + this->suffix + " A B"));
            EXPECT_EQ(engine.table(), this->rows);
        }
    }
}

TYPED_TEST(SenderResult, IsNotRequestedByEmptyOrRefusedCalls) {
    EngineOf<TypeParam> engine(kSilent);
    this->prepare(engine, 5);
    EXPECT_EQ(engine.add({}), 0);
    EXPECT_EQ(engine.remove({}), 0);
    EXPECT_EQ(engine.publish({}), 0);
    EXPECT_EQ(engine.add({{"C"}, {"C"}}), 3);
    EXPECT_EQ(engine.add({{"C"}, {"A"}}), 3);
    EXPECT_EQ(engine.publish({parameter("X", 1, 1)}), 3);
    EXPECT_THAT(this->calls, IsEmpty());
}

TYPED_TEST(SenderResult, MayBeAnException) {
    EngineOf<TypeParam> engine;
    this->prepare(engine, 0);
    engine.onSend = [](const std::string&) -> int { throw std::bad_alloc(); };
    EXPECT_THROW(engine.add({{"C"}}), std::bad_alloc);
    EXPECT_THROW(engine.remove({"A"}), std::bad_alloc);
    EXPECT_THAT(engine.table(), ElementsAre(this->rows[0], this->rows[1], TypeParam::row("C")));
}

using PublicationResult = SenderResult<Outputs>;

TEST_F(PublicationResult, IsReturnedAndKeepsTheValues) {
    for (const int result : kResults) {
        EngineOf<Outputs> engine;
        prepare(engine, result);
        EXPECT_EQ(engine.publish({parameter("B", 1, 2), parameter("A", 1, 1)}), result);
        EXPECT_THAT(calls, ElementsAre("publish mode 0 B A"));
        EXPECT_THAT(engine.outputTable(),
                    ElementsAre("A type 1 id 7 published 00000001", "B type 1 waiting published 00000002"));
    }
}

TEST_F(PublicationResult, MayBeAnException) {
    EngineOf<Outputs> engine;
    prepare(engine, 0);
    engine.onSend = [](const std::string&) -> int { throw std::bad_alloc(); };
    EXPECT_THROW(engine.publish({parameter("B", 1, 5)}), std::bad_alloc);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 id 7 00000000", "B type 1 waiting published 00000005"));
}

}  // namespace
}  // namespace com_tesk::test
