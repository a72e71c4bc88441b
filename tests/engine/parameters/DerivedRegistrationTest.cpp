#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <thread>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A derived protocol that has its own registration of inputs.
class DerivedEngine : public ParameterEngine {
  public:
    using ParameterEngine::ParameterEngine;

    /// Replaces the registration when it is set.
    std::function<int(const std::vector<CSClient::InputDef>&)> onRegister;
    std::vector<std::vector<std::string>> unregistered;

    int registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) override {
        EXPECT_FALSE(holdsParameterMutex());
        if (onRegister) {
            const auto replacement = onRegister;
            return replacement(std::vector<CSClient::InputDef>(definitions, definitions + count));
        }
        return ParameterEngine::registerInputParameters(definitions, count);
    }

    int unregisterInputParameters(const std::vector<std::string>& names) override {
        EXPECT_FALSE(holdsParameterMutex());
        unregistered.push_back(names);
        return ParameterEngine::unregisterInputParameters(names);
    }

    int registerTheEnginesWay(const std::vector<CSClient::InputDef>& definitions) {
        return ParameterEngine::registerInputParameters(definitions.data(),
                                                        static_cast<unsigned int>(definitions.size()));
    }
};

/// A, B and C are confirmed inputs; the connection stands.
class DerivedRegistration : public testing::Test {
  protected:
    DerivedRegistration() {
        engine.registerInputs({input("C", 1, 3), input("B", 2, 2), input("A", 1, 1)});
        engine.receive(inputsConfirmed({{1, "A"}, {2, "B"}, {3, "C"}}));
        engine.pretendState(CSClient::STATE_READY);
    }

    CapturedStreams streams;
    DerivedEngine engine;
};

TEST_F(DerivedRegistration, ReregistrationPassesAllDefinitionsInNameOrderToTheOverride) {
    std::vector<std::string> seen;
    std::vector<std::string> tableMeanwhile = {"not asked"};
    engine.onRegister = [&](const std::vector<CSClient::InputDef>& definitions) {
        for (const CSClient::InputDef& definition : definitions) {
            seen.push_back(definition.name + " type " + std::to_string(definition.type) + " mode " +
                           std::to_string(definition.subscriptionMode));
        }
        tableMeanwhile = engine.inputTable();
        return engine.registerTheEnginesWay(definitions);
    };
    engine.reregisterAllInputParameters();
    EXPECT_THAT(seen, ElementsAre("A type 1 mode 1", "B type 2 mode 2", "C type 1 mode 3"));
    EXPECT_THAT(tableMeanwhile, IsEmpty());
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 2 waiting", "C type 1 mode 3 waiting"));
}

TEST_F(DerivedRegistration, WithoutInputsTheOverrideIsNotCalled) {
    engine.unregisterAllLocalParameters();
    int calls = 0;
    engine.onRegister = [&](const std::vector<CSClient::InputDef>&) { return ++calls; };
    engine.reregisterAllInputParameters();
    EXPECT_EQ(calls, 0);
}

TEST_F(DerivedRegistration, WhatTheOverrideDoesNotRegisterIsGone) {
    engine.onRegister = [&](const std::vector<CSClient::InputDef>& definitions) {
        return engine.registerTheEnginesWay({definitions[1]});
    };
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("B type 2 mode 2 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
}

TEST_F(DerivedRegistration, ReachingReadyGoesThroughTheOverrideToo) {
    int calls = 0;
    engine.onRegister = [&](const std::vector<CSClient::InputDef>& definitions) {
        ++calls;
        return engine.registerTheEnginesWay(definitions);
    };
    engine.pretendState(CSClient::STATE_CONNECTING);
    engine.changeState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(calls, 1);
}

TEST_F(DerivedRegistration, UnregisteringAllPassesAllNamesInOrderToTheOverride) {
    engine.unregisterAllInputParameters();
    EXPECT_THAT(engine.unregistered, ElementsAre(ElementsAre("A", "B", "C")));
    EXPECT_THAT(engine.inputTable(), IsEmpty());
}

TEST_F(DerivedRegistration, ANameRegisteredInTheGapRefusesItAndLosesWhatComesAfterIt) {
    engine.onRegister = [&](const std::vector<CSClient::InputDef>& definitions) {
        engine.registerTheEnginesWay({input("B", 5, 9)});
        return engine.registerTheEnginesWay(definitions);
    };
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", "B type 5 mode 9 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_EQ(streams.err(), "Parameter 'B' already registered.\n");
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 40 00 7F 00 01 00 01 00 00 00 00 00 01"
                                                     "00 00 00 00 00 00 00 00 00 00 00 00" +
                                                     hexField("B"))))
        << "the one of the gap's own registration";
}

TEST_F(DerivedRegistration, TheFirstNameRegisteredInTheGapLosesAllOthers) {
    engine.onRegister = [&](const std::vector<CSClient::InputDef>& definitions) {
        engine.registerTheEnginesWay({input("A", 1, 1)});
        return engine.registerTheEnginesWay(definitions);
    };
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
}

TEST_F(DerivedRegistration, TheLastNameRegisteredInTheGapLosesNothing) {
    engine.onRegister = [&](const std::vector<CSClient::InputDef>& definitions) {
        engine.registerTheEnginesWay({input("C", 1, 1)});
        return engine.registerTheEnginesWay(definitions);
    };
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 2 waiting", "C type 1 mode 1 waiting"));
    EXPECT_EQ(engine.requests().size(), 1U);
}

TEST_F(DerivedRegistration, AnotherNameRegisteredInTheGapDisturbsNobody) {
    engine.onRegister = [&](const std::vector<CSClient::InputDef>& definitions) {
        engine.registerTheEnginesWay({input("AB", 1, 1)});
        return engine.registerTheEnginesWay(definitions);
    };
    engine.reregisterAllInputParameters();
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 4U);
    EXPECT_EQ(streams.err(), "");
    EXPECT_EQ(engine.requests().size(), 2U);
}

TEST_F(DerivedRegistration, TheGapIsOpenToOtherThreads) {
    engine.onRegister = [&](const std::vector<CSClient::InputDef>& definitions) {
        std::thread other([this] { engine.registerTheEnginesWay({input("B", 5, 9)}); });
        other.join();
        return engine.registerTheEnginesWay(definitions);
    };
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", "B type 5 mode 9 waiting"));
}

TEST_F(DerivedRegistration, AnOverrideWithoutMemoryLosesNoInput) {
    engine.onRegister = [](const std::vector<CSClient::InputDef>&) -> int { throw std::bad_alloc(); };
    EXPECT_THROW(engine.reregisterAllInputParameters(), std::bad_alloc);
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 2 waiting", "C type 1 mode 3 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
}

TEST_F(DerivedRegistration, AnOverrideThatRunsOutOfMemoryHalfwayLosesNoInput) {
    engine.onRegister = [&](const std::vector<CSClient::InputDef>& definitions) -> int {
        engine.registerTheEnginesWay({definitions[0], definitions[1]});
        throw std::bad_alloc();
    };
    EXPECT_THROW(engine.reregisterAllInputParameters(), std::bad_alloc);
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 2 waiting", "C type 1 mode 3 waiting"));
}

TEST_F(DerivedRegistration, WhatTheGapRegisteredWinsOverWhatALackOfMemoryBringsBack) {
    engine.onRegister = [&](const std::vector<CSClient::InputDef>&) -> int {
        engine.registerTheEnginesWay({input("B", 5, 9)});
        throw std::bad_alloc();
    };
    EXPECT_THROW(engine.reregisterAllInputParameters(), std::bad_alloc);
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 5 mode 9 waiting", "C type 1 mode 3 waiting"));
}

TEST_F(DerivedRegistration, AfterALackOfMemoryTheInputsRegisterAgainAsEver) {
    engine.onRegister = [](const std::vector<CSClient::InputDef>&) -> int { throw std::bad_alloc(); };
    EXPECT_THROW(engine.reregisterAllInputParameters(), std::bad_alloc);
    engine.onRegister = nullptr;
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.requests(),
                ElementsAre(frame("04 02 7F FF 00 00 00 98 00 7F 00 01 00 01 00 00 00 00 00 03"
                                  "00 00 2E E0 00 00 2E E0 00 00 00 00" +
                                  hexField("A") + "00 00 00 00 00 00 00 00 00 00 00 01" + hexField("B") +
                                  "00 01 D4 C0 00 01 D4 C0 00 00 00 00" + hexField("C"))));
    engine.receive(inputsConfirmed({{21, "A"}, {22, "B"}, {23, "C"}}));
    EXPECT_EQ(engine.inputIds(), "21=A 22=B 23=C");
    EXPECT_EQ(engine.unregisterInputParameters({"C", "A", "B"}), 0);
    EXPECT_THAT(engine.inputTable(), IsEmpty());
}

}  // namespace
}  // namespace com_tesk::test
