#include <new>
#include <thread>

#include "tests/engine/parameters/ParameterTest.h"

namespace com_tesk::test {
namespace {

/// A, B and C are confirmed inputs, and the engine is connected.
class DerivedRegistration : public testing::Test {
  protected:
    DerivedRegistration() {
        engine.registerInputs({input("C", 1, 3), input("B", 2, 2), input("A", 1, 1)});
        engine.receive(inputsConfirmed({{1, "A"}, {2, "B"}, {3, "C"}}));
        engine.pretendState(CSClient::STATE_READY);
    }

    /// Reregisters the inputs. Another thread registers `inputs` before the override does anything.
    void reregisterAfter(const std::vector<CSClient::InputDef>& inputs) {
        engine.onRegisterInputs = [this, inputs](const std::vector<CSClient::InputDef>& definitions) {
            std::thread([&] { engine.registerAsTheEngine(inputs); }).join();
            return engine.registerAsTheEngine(definitions);
        };
        engine.reregisterAllInputParameters();
    }

    CapturedStreams streams;
    DerivedEngine engine;
};

TEST_F(DerivedRegistration, ReceivesAllDefinitionsInNameOrder) {
    std::vector<std::string> seen;
    engine.onRegisterInputs = [&](const std::vector<CSClient::InputDef>& definitions) {
        EXPECT_THAT(engine.inputTable(), IsEmpty());
        for (const CSClient::InputDef& definition : definitions) {
            seen.push_back(definition.name + " type " + std::to_string(definition.type) + " mode " +
                           std::to_string(definition.subscriptionMode));
        }
        return engine.registerAsTheEngine(definitions);
    };
    engine.reregisterAllInputParameters();
    EXPECT_THAT(seen, ElementsAre("A type 1 mode 1", "B type 2 mode 2", "C type 1 mode 3"));
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 2 waiting", "C type 1 mode 3 waiting"));
    engine.pretendState(CSClient::STATE_CONNECTING);
    engine.changeState(CSClient::STATE_CONNECTED);
    EXPECT_EQ(seen.size(), 6U) << "also on the way to ready";
    engine.unregisterAllLocalParameters();
    engine.reregisterAllInputParameters();
    EXPECT_EQ(seen.size(), 6U) << "not without inputs";
}

TEST_F(DerivedRegistration, ErasesTheInputsThatItDoesNotRegister) {
    engine.onRegisterInputs = [&](const std::vector<CSClient::InputDef>& definitions) {
        return engine.registerAsTheEngine({definitions[1]});
    };
    engine.reregisterAllInputParameters();
    EXPECT_THAT(engine.inputTable(), ElementsAre("B type 2 mode 2 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
}

TEST_F(DerivedRegistration, UnregistersAllNamesInOrder) {
    std::vector<std::string> unregistered;
    engine.onUnregisterInputs = [&](const std::vector<std::string>& names) { unregistered = names; };
    engine.unregisterAllInputParameters();
    EXPECT_THAT(unregistered, ElementsAre("A", "B", "C"));
    EXPECT_THAT(engine.inputTable(), IsEmpty());
}

TEST_F(DerivedRegistration, StopsAtANameRegisteredMeanwhile) {
    reregisterAfter({input("B", 5, 9)});
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", "B type 5 mode 9 waiting"))
        << "without the names after it";
    EXPECT_EQ(engine.inputIds(), "");
    EXPECT_EQ(streams.err(), "Parameter 'B' already registered.\n");
    EXPECT_EQ(engine.requests(), inputRequest({input("B", 5, 9)})) << "the only one that was not refused";
}

TEST_F(DerivedRegistration, StopsAtTheFirstOrLastNameRegisteredMeanwhile) {
    reregisterAfter({input("C", 1, 1)});
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 2 waiting", "C type 1 mode 1 waiting"));
    reregisterAfter({input("A", 1, 1)});
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting"));
}

TEST_F(DerivedRegistration, IsNotStoppedByAnotherName) {
    reregisterAfter({input("AB", 1, 1)});
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 4U);
    EXPECT_EQ(streams.err(), "");
    EXPECT_EQ(engine.requests().size(), 2U);
}

TEST_F(DerivedRegistration, WithoutMemoryLosesNoInput) {
    engine.onRegisterInputs = [](const std::vector<CSClient::InputDef>&) -> int { throw std::bad_alloc(); };
    EXPECT_THROW(engine.reregisterAllInputParameters(), std::bad_alloc);
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 2 mode 2 waiting", "C type 1 mode 3 waiting"));
    EXPECT_EQ(engine.inputIds(), "");
    engine.onRegisterInputs = nullptr;
    engine.reregisterAllInputParameters();
    EXPECT_EQ(engine.requests(), inputRequest({input("A", 1, 1), input("B", 2, 2), input("C", 1, 3)}));
    engine.receive(inputsConfirmed({{21, "A"}, {22, "B"}, {23, "C"}}));
    EXPECT_EQ(engine.inputIds(), "21=A 22=B 23=C");
    EXPECT_EQ(engine.unregisterInputParameters({"C", "A", "B"}), 0);
    EXPECT_THAT(engine.inputTable(), IsEmpty());
}

TEST_F(DerivedRegistration, WithoutMemoryKeepsWhatItHasRegistered) {
    engine.onRegisterInputs = [&](const std::vector<CSClient::InputDef>& definitions) -> int {
        engine.registerAsTheEngine({definitions[0], input("B", 5, 9)});
        throw std::bad_alloc();
    };
    EXPECT_THROW(engine.reregisterAllInputParameters(), std::bad_alloc);
    EXPECT_THAT(engine.inputTable(),
                ElementsAre("A type 1 mode 1 waiting", "B type 5 mode 9 waiting", "C type 1 mode 3 waiting"));
}

}  // namespace
}  // namespace com_tesk::test
