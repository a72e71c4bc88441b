#include <new>

#include "tests/engine/parameters/Allocations.h"
#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

// Longer than what a string keeps without an allocation.
const std::string kNameA = longName('A');
const std::string kNameB = longName('B');
const std::string kNameC = longName('C');

/// Lets each allocation of an operation fail, once alone and once with all after it, and checks what is left.
template <typename Kind>
class LackOfMemory : public testing::Test {
  protected:
    /// @param prepare    prepares a new engine for the operation.
    /// @param operation  allocates nothing itself.
    /// @param check      is called after each failure.
    template <typename Prepare, typename Operation, typename Check>
    static void failEverywhere(const Prepare& prepare, const Operation& operation, const Check& check) {
        for (const auto kind : {FailingAllocations::ONE, FailingAllocations::ALL}) {
            // Far more than any of the operations needs.
            constexpr int kMaxAllocations = 2'000;
            bool haveFailed = true;
            int granted = 0;
            for (; haveFailed && granted < kMaxAllocations; ++granted) {
                SCOPED_TRACE(granted);
                EngineOf<Kind> engine(kSilent);
                prepare(engine);
                {
                    const FailingAllocations allocations(granted, kind);
                    try {
                        operation(engine);
                    } catch (const std::bad_alloc&) {
                    }
                    haveFailed = allocations.haveFailed();
                }
                if (haveFailed) {
                    check(engine);
                }
            }
            EXPECT_GT(granted, 1) << "the operation allocates nothing";
            EXPECT_LT(granted, kMaxAllocations);
        }
    }

    /// Lets `operation` fail everywhere and checks that all entries are left.
    template <typename Operation>
    void expectAllKept(const Operation& operation) {
        failEverywhere([this](EngineOf<Kind>& engine) { engine.add(definitions); }, operation,
                       [](EngineOf<Kind>& engine) { EXPECT_EQ(engine.number(false), 3U); });
    }

    const std::vector<Definition> definitions = {{kNameC, 1}, {kNameA, 2}, {kNameB, 5}};
    const std::vector<std::string> names = {kNameC, kNameA, kNameB};
};
TYPED_TEST_SUITE(LackOfMemory, Kinds, KindNames);

TYPED_TEST(LackOfMemory, InReregistrationKeepsAllEntries) {
    using Engine = EngineOf<TypeParam>;
    this->failEverywhere(
        [this](Engine& engine) {
            engine.add(this->definitions);
            engine.confirm({{7, kNameA}, {8, kNameB}, {9, kNameC}});
        },
        [](Engine& engine) { engine.reregister(); },
        [](Engine& engine) {
            // Either nothing had happened yet, or all inputs are unconfirmed.
            const bool isConfirmed = engine.number(true) != 0;
            EXPECT_TRUE(isConfirmed || Outputs::kWord != TypeParam::kWord);
            EXPECT_THAT(engine.table(), ElementsAre(TypeParam::row(kNameA, isConfirmed ? "id 7" : "waiting", 2),
                                                    TypeParam::row(kNameB, isConfirmed ? "id 8" : "waiting", 5),
                                                    TypeParam::row(kNameC, isConfirmed ? "id 9" : "waiting", 1)));
            EXPECT_EQ(engine.ids(), isConfirmed ? "7=" + kNameA + " 8=" + kNameB + " 9=" + kNameC : "");
            engine.removeAll();
            EXPECT_THAT(engine.table(), IsEmpty());
            EXPECT_EQ(engine.ids(), "");
        });
}

TYPED_TEST(LackOfMemory, InRegistrationKeepsTheEntriesBefore) {
    using Engine = EngineOf<TypeParam>;
    const auto registered = Engine::registered(this->definitions);
    this->failEverywhere([](Engine&) {}, [&registered](Engine& engine) { (engine.*TypeParam::kRegister)(registered); },
                         [this](Engine& engine) {
                             const std::size_t kept = engine.number(false);
                             ASSERT_LE(kept, 3U);
                             for (std::size_t i = 0; i < 3; ++i) {
                                 EXPECT_EQ(engine.has(this->names[i], false), i < kept);
                             }
                             engine.remove(this->names);
                             EXPECT_EQ(engine.add(this->definitions), 0);
                         });
}

TYPED_TEST(LackOfMemory, InUnregistrationKeepsAllEntries) {
    this->expectAllKept([this](EngineOf<TypeParam>& engine) { engine.remove(this->names); });
    this->expectAllKept([](EngineOf<TypeParam>& engine) { engine.removeAll(); });
}

using LackOfMemoryForValues = LackOfMemory<Outputs>;

TEST_F(LackOfMemoryForValues, InPublicationStoresAllOrNone) {
    const std::vector<CSClient::Parameter> parameters = {parameter(kNameA, 2, 1), parameter(kNameC, 1, 2)};
    failEverywhere([this](EngineOf<Outputs>& engine) { engine.add(definitions); },
                   [&parameters](TestEngine& engine) { engine.publish(parameters); },
                   [](TestEngine& engine) {
                       std::vector<std::string> table = engine.outputTable();
                       ASSERT_EQ(table.size(), 3U);
                       if (table[0] == Outputs::row(kNameA, "waiting", 2)) {
                           EXPECT_EQ(table[2], Outputs::row(kNameC));
                       } else {
                           EXPECT_EQ(table[0], kNameA + " type 2 waiting published 00000001");
                           EXPECT_EQ(table[2], kNameC + " type 1 waiting published 00000002");
                       }
                   });
}

TEST_F(LackOfMemoryForValues, InTheListOfValuesKeepsAllEntries) {
    expectAllKept([](TestEngine& engine) {
        std::vector<CSClient::Parameter> all;
        engine.getAllPublishedParameters(all);
    });
}

}  // namespace
}  // namespace com_tesk::test
