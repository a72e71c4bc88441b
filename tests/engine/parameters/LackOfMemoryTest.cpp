#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "tests/engine/parameters/Allocations.h"
#include "tests/engine/parameters/ParameterEngine.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Longer than what a string keeps without an allocation.
const std::string kNameA = std::string(30, 'n') + "A";
const std::string kNameB = std::string(30, 'n') + "B";
const std::string kNameC = std::string(30, 'n') + "C";

/// Lets every allocation of an operation fail once, with or without all those after it, and looks at what is left.
class LackOfMemory : public testing::TestWithParam<FailingAllocations::Kind> {
  protected:
    using Step = std::function<void(ParameterEngine&)>;

    /// @param prepare    brings a fresh engine to where the operation begins.
    /// @param operation  allocates nothing itself.
    /// @param check      is called after each failure.
    void failEverywhere(const Step& prepare, const Step& operation, const Step& check) {
        // Far more than any of the operations needs.
        constexpr int kBound = 2'000;
        int granted = 0;
        for (; granted < kBound; ++granted) {
            SCOPED_TRACE(granted);
            ParameterEngine engine(1, CSClient::OPTION_SILENT);
            engine.pretendState(CSClient::STATE_READY);
            prepare(engine);
            bool haveFailed = false;
            {
                const FailingAllocations allocations(granted, GetParam());
                try {
                    operation(engine);
                } catch (const std::bad_alloc&) {
                }
                haveFailed = allocations.haveFailed();
            }
            if (!haveFailed) {
                break;
            }
            check(engine);
        }
        EXPECT_GT(granted, 0) << "the operation allocates nothing";
        EXPECT_LT(granted, kBound);
    }

    const std::vector<CSClient::InputDef> inputs = {input(kNameC, 1, 3), input(kNameA, 2, 1), input(kNameB, 5, 9)};
    const std::vector<CSClient::OutputDef> outputs = {output(kNameC, 1), output(kNameA, 2), output(kNameB, 5)};
    const std::vector<std::string> names = {kNameC, kNameA, kNameB};
};

TEST_P(LackOfMemory, InReregistrationLosesNoInput) {
    failEverywhere(
        [this](ParameterEngine& engine) {
            engine.registerInputs(inputs);
            engine.receive(inputsConfirmed({{7, kNameA}, {8, kNameB}, {9, kNameC}}));
        },
        [](ParameterEngine& engine) { engine.reregisterAllInputParameters(); },
        [](ParameterEngine& engine) {
            // Either nothing had happened yet or all of it.
            if (engine.getNumberOfInputParameters(true) == 0) {
                EXPECT_THAT(engine.inputTable(),
                            ElementsAre(kNameA + " type 2 mode 1 waiting", kNameB + " type 5 mode 9 waiting",
                                        kNameC + " type 1 mode 3 waiting"));
            } else {
                EXPECT_THAT(engine.inputTable(),
                            ElementsAre(kNameA + " type 2 mode 1 id 7", kNameB + " type 5 mode 9 id 8",
                                        kNameC + " type 1 mode 3 id 9"));
                EXPECT_EQ(engine.inputIds(), "7=" + kNameA + " 8=" + kNameB + " 9=" + kNameC);
            }
            engine.unregisterAllInputParameters();
            EXPECT_THAT(engine.inputTable(), IsEmpty());
            EXPECT_EQ(engine.inputIds(), "");
        });
}

TEST_P(LackOfMemory, InReregistrationChangesNoOutput) {
    failEverywhere(
        [this](ParameterEngine& engine) {
            engine.registerOutputs(outputs);
            engine.receive(outputsConfirmed({{7, kNameA}}));
        },
        [](ParameterEngine& engine) { engine.reregisterAllOutputParameters(); },
        [](ParameterEngine& engine) {
            EXPECT_THAT(engine.outputTable(),
                        ElementsAre(kNameA + " type 2 id 7 00000000", kNameB + " type 5 waiting 00000000",
                                    kNameC + " type 1 waiting 00000000"));
            EXPECT_EQ(engine.outputIds(), "7=" + kNameA);
        });
}

TEST_P(LackOfMemory, WhileRegisteringInputsKeepsThoseBeforeIt) {
    failEverywhere([](ParameterEngine&) {},
                   [this](ParameterEngine& engine) { engine.registerInputParameters(inputs.data(), 3); },
                   [this](ParameterEngine& engine) {
                       const std::size_t kept = engine.inputTable().size();
                       ASSERT_LE(kept, 3U);
                       for (std::size_t i = 0; i < 3; ++i) {
                           EXPECT_EQ(engine.hasInputParameter(names[i], false), i < kept);
                       }
                       engine.unregisterInputParameters(names);
                       EXPECT_EQ(engine.registerInputs(inputs), 0);
                   });
}

TEST_P(LackOfMemory, WhileRegisteringOutputsKeepsThoseBeforeIt) {
    failEverywhere([](ParameterEngine&) {},
                   [this](ParameterEngine& engine) { engine.registerOutputParameters(outputs.data(), 3); },
                   [this](ParameterEngine& engine) {
                       const std::size_t kept = engine.outputTable().size();
                       ASSERT_LE(kept, 3U);
                       for (std::size_t i = 0; i < 3; ++i) {
                           EXPECT_EQ(engine.hasOutputParameter(names[i], false), i < kept);
                       }
                       engine.unregisterOutputParameters(names);
                       EXPECT_EQ(engine.registerOutputs(outputs), 0);
                   });
}

TEST_P(LackOfMemory, WhileUnregisteringInputsKeepsThemAll) {
    failEverywhere([this](ParameterEngine& engine) { engine.registerInputs(inputs); },
                   [this](ParameterEngine& engine) { engine.unregisterInputParameters(names); },
                   [](ParameterEngine& engine) { EXPECT_EQ(engine.getNumberOfInputParameters(false), 3U); });
}

TEST_P(LackOfMemory, WhileUnregisteringOutputsKeepsThemAll) {
    failEverywhere([this](ParameterEngine& engine) { engine.registerOutputs(outputs); },
                   [this](ParameterEngine& engine) { engine.unregisterOutputParameters(names); },
                   [](ParameterEngine& engine) { EXPECT_EQ(engine.getNumberOfOutputParameters(false), 3U); });
}

TEST_P(LackOfMemory, WhileUnregisteringAllInputsKeepsThemAll) {
    failEverywhere([this](ParameterEngine& engine) { engine.registerInputs(inputs); },
                   [](ParameterEngine& engine) { engine.unregisterAllInputParameters(); },
                   [](ParameterEngine& engine) { EXPECT_EQ(engine.getNumberOfInputParameters(false), 3U); });
}

TEST_P(LackOfMemory, WhileUnregisteringAllOutputsKeepsThemAll) {
    failEverywhere([this](ParameterEngine& engine) { engine.registerOutputs(outputs); },
                   [](ParameterEngine& engine) { engine.unregisterAllOutputParameters(); },
                   [](ParameterEngine& engine) { EXPECT_EQ(engine.getNumberOfOutputParameters(false), 3U); });
}

TEST_P(LackOfMemory, WhilePublishingStoresAllValuesOrNone) {
    const std::vector<CSClient::Parameter> parameters = {record(kNameA, 2, 1), record(kNameC, 1, 2)};
    failEverywhere([this](ParameterEngine& engine) { engine.registerOutputs(outputs); },
                   [&parameters](ParameterEngine& engine) {
                       engine.publishParameters(parameters.data(), 2, CSClientProtocol::PUBLISH_DEFAULT);
                   },
                   [](ParameterEngine& engine) {
                       const std::vector<std::string> table = engine.outputTable();
                       ASSERT_EQ(table.size(), 3U);
                       if (table[0] == kNameA + " type 2 waiting 00000000") {
                           EXPECT_EQ(table[2], kNameC + " type 1 waiting 00000000");
                       } else {
                           EXPECT_EQ(table[0], kNameA + " type 2 waiting published 00000001");
                           EXPECT_EQ(table[2], kNameC + " type 1 waiting published 00000002");
                       }
                   });
}

TEST_P(LackOfMemory, WhileListingPublishedValuesLeavesTheEngineUsable) {
    failEverywhere([this](ParameterEngine& engine) { engine.registerOutputs(outputs); },
                   [](ParameterEngine& engine) {
                       std::vector<CSClient::Parameter> all;
                       engine.getAllPublishedParameters(all);
                   },
                   [](ParameterEngine& engine) { EXPECT_EQ(engine.getNumberOfOutputParameters(false), 3U); });
}

INSTANTIATE_TEST_SUITE_P(Kinds, LackOfMemory, testing::Values(FailingAllocations::ONE, FailingAllocations::ALL));

class ThrowingSender : public testing::Test {
  protected:
    ThrowingSender() {
        engine.registerInputs({input("A")});
        engine.registerOutputs({output("A")});
        engine.onSend = [] { throw std::bad_alloc(); };
    }

    SenderEngine engine;
};

TEST_F(ThrowingSender, LeavesTheNewEntriesAndNoLock) {
    EXPECT_THROW(engine.registerInputs({input("B")}), std::bad_alloc);
    EXPECT_THROW(engine.registerOutputs({output("B")}), std::bad_alloc);
    EXPECT_TRUE(engine.hasInputParameter("B", false));
    EXPECT_TRUE(engine.hasOutputParameter("B", false));
}

TEST_F(ThrowingSender, LetsNothingGoThatWasToBeUnregistered) {
    EXPECT_THROW(engine.unregisterInputParameters({"A"}), std::bad_alloc);
    EXPECT_THROW(engine.unregisterOutputParameters({"A"}), std::bad_alloc);
    EXPECT_TRUE(engine.hasInputParameter("A", false));
    EXPECT_TRUE(engine.hasOutputParameter("A", false));
}

TEST_F(ThrowingSender, KeepsThePublishedValue) {
    EXPECT_THROW(engine.publish({record("A", 1, 5)}), std::bad_alloc);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting published 00000005"));
}

}  // namespace
}  // namespace com_tesk::test
