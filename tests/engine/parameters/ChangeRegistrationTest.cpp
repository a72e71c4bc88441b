// Registrations, unregistrations and publications during a change to ready, while no lock that they need is held.

#include <chrono>
#include <tuple>

#include "tests/engine/parameters/ReadyChange.h"

namespace com_tesk::test {
namespace {

/// What is registered when the change begins.
struct Before {
    const char* name;
    bool hasInput;
    bool hasOutput;
};

const Before kBefore[] = {
    {"Nothing", false, false}, {"AnInput", true, false}, {"AnOutput", false, true}, {"Both", true, true}};

using PlaceAndBefore = std::tuple<const char*, Before>;

std::string caseName(const testing::TestParamInfo<PlaceAndBefore>& information) {
    return std::get<0>(information.param) + std::string("With") + std::get<1>(information.param).name;
}

class ChangeAtPlace : public ReadyChange, public testing::WithParamInterface<PlaceAndBefore> {
  protected:
    ChangeAtPlace() { registerBefore(before.hasInput, before.hasOutput); }

    /// The request for I, if it was registered, and for these names, which come after it.
    Requests inputsWith(std::vector<CSClient::InputDef> inputs) const {
        if (before.hasInput) {
            inputs.insert(inputs.begin(), input("I"));
        }
        return inputRequest(inputs);
    }
    /// The request for O and these.
    Requests outputsWith(std::vector<CSClient::OutputDef> outputs) const {
        if (before.hasOutput) {
            outputs.insert(outputs.begin(), output("O"));
        }
        return outputRequest(outputs);
    }
    static Requests onlyIf(bool condition, const Requests& requests) { return condition ? requests : Requests(); }

    const std::string place = std::get<0>(GetParam());
    const Before before = std::get<1>(GetParam());
};

/// The places before the re-registration begins.
class BeforeReregistration : public ChangeAtPlace {
  protected:
    /// `atOnce` is sent at this place, and `rest` after the version request.
    Requests withVersion(const Requests& atOnce, const Requests& rest) const {
        return (place == kAfterVersion ? versionRequest() + atOnce : atOnce + versionRequest()) + rest;
    }

    const Requests earlier = inputsWith({}) + outputsWith({});
};
INSTANTIATE_TEST_SUITE_P(At, BeforeReregistration,
                         testing::Combine(testing::Values(kConnectedCallback, kReadyCallback, kVersionWrite,
                                                          kAfterVersion),
                                          testing::ValuesIn(kBefore)),
                         caseName);

TEST_P(BeforeReregistration, AnotherThreadsInputIsRequestedOnce) {
    stopAt(place);
    EXPECT_EQ(engine.registerInputs({input("Z"), input("X")}), 0);
    EXPECT_TRUE(engine.hasInputParameter("X", false));
    finish();
    EXPECT_EQ(engine.requests(), withVersion({}, inputsWith({input("X"), input("Z")}) + outputsWith({})));
}

TEST_P(BeforeReregistration, AnotherThreadsOutputIsRequestedOnce) {
    stopAt(place);
    EXPECT_EQ(engine.registerOutputs({output("Z"), output("X")}), 0);
    EXPECT_TRUE(engine.hasOutputParameter("X", false));
    finish();
    EXPECT_EQ(engine.requests(), withVersion({}, inputsWith({}) + outputsWith({output("X"), output("Z")})));
}

TEST_P(BeforeReregistration, OtherRequestsForNewParametersAreSentAtOnce) {
    stopAt(place);
    registerBoth();
    EXPECT_EQ(engine.publish({floatParameter("Y", 1.5F)}), 0);
    EXPECT_EQ(engine.unregisterInputParameters({"X"}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({"Y"}), 0);
    finish();
    const Requests atOnce = publicationOf(kUnassigned) + inputEnd({kUnassigned}) + outputEnd({kUnassigned});
    EXPECT_EQ(engine.requests(), withVersion(atOnce, earlier));
}

TEST_P(BeforeReregistration, OtherRequestsForEarlierParametersAreSentAtOnce) {
    stopAt(place);
    EXPECT_EQ(publishO(engine), before.hasOutput ? 0 : 3);
    EXPECT_EQ(engine.unregisterInputParameters({"I"}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({"O"}), 0);
    finish();
    const Requests atOnce = onlyIf(before.hasOutput, publicationOf(7)) + onlyIf(before.hasInput, inputEnd({9})) +
                            onlyIf(before.hasOutput, outputEnd({7}));
    EXPECT_EQ(engine.requests(), withVersion(atOnce, {}));
}

TEST_P(BeforeReregistration, RefusedNamesAreRequestedAsOftenAsRegistered) {
    stopAt(place);
    EXPECT_EQ(engine.registerInputs({input("I")}), before.hasInput ? 3 : 0);
    EXPECT_EQ(engine.registerInputs({input("I")}), 3);
    EXPECT_EQ(engine.registerInputs({input("X"), input("Y", 0), input("Z")}), 3);
    EXPECT_EQ(engine.registerOutputs({output("O")}), before.hasOutput ? 3 : 0);
    EXPECT_EQ(engine.registerOutputs({output("O")}), 3);
    EXPECT_EQ(engine.registerOutputs({output("X"), output("Y", 0), output("Z")}), 3);
    finish();
    EXPECT_EQ(engine.requests(),
              withVersion({}, inputRequest({input("I"), input("X")}) + outputRequest({output("O"), output("X")})));
}

TEST_P(BeforeReregistration, IsFollowedByRegistrationsThatAreSentAtOnce) {
    stopAt(place);
    finish();
    registerBoth();
    EXPECT_EQ(engine.requests(), withVersion({}, earlier) + inputRequest({input("X")}) + outputRequest({output("Y")}));
}

/// The thread that makes the change acts in a callback.
class InsideCallback : public ChangeAtPlace {};
INSTANTIATE_TEST_SUITE_P(At, InsideCallback,
                         testing::Combine(testing::Values(kConnectedCallback, kReadyCallback),
                                          testing::ValuesIn(kBefore)),
                         caseName);

TEST_P(InsideCallback, ARegistrationIsSentAtOnceAndAgain) {
    actAt(place, [this] { registerBoth(); });
    EXPECT_EQ(engine.requests(), inputRequest({input("X")}) + outputRequest({output("Y")}) + versionRequest() +
                                     inputsWith({input("X")}) + outputsWith({output("Y")}));
}

TEST_P(InsideCallback, UnregisteringAndPublishingAreSentAtOnce) {
    actAt(place, [this] {
        engine.unregisterInputParameters({"I"});
        publishO(engine);
    });
    EXPECT_EQ(engine.requests(), onlyIf(before.hasInput, inputEnd({9})) + onlyIf(before.hasOutput, publicationOf(7)) +
                                     versionRequest() + outputsWith({}));
}

TEST_P(InsideCallback, AnotherThreadsRegistrationIsSentAfterTheChange) {
    actAt(place, [this] {
        EXPECT_EQ(engine.registerInputs({input("X")}), 0);
        std::thread([this] { EXPECT_EQ(engine.registerInputs({input("Y")}), 0); }).join();
    });
    EXPECT_EQ(engine.requests(),
              inputRequest({input("X")}) + versionRequest() + inputsWith({input("X"), input("Y")}) + outputsWith({}));
}

/// The gaps of the re-registration of I and O.
class DuringReregistration : public ReadyChange {
  protected:
    DuringReregistration() { registerBefore(true, true); }

    const Requests i = inputRequest({input("I")});
    const Requests o = outputRequest({output("O")});
    const Requests x = inputRequest({input("X")});
    const Requests y = outputRequest({output("Y")});
    const Requests bothOutputs = outputRequest({output("O"), output("Y")});
};

TEST_F(DuringReregistration, AfterTheSnapshotAnInputIsSentAtOnce) {
    stopAt(kAfterSnapshot);
    registerBoth();
    finish();
    EXPECT_EQ(engine.requests(), versionRequest() + x + i + bothOutputs);
}

TEST_F(DuringReregistration, AfterTheInputsOnlyAnOutputIsLeft) {
    stopAt(kBetween);
    registerBoth();
    finish();
    EXPECT_EQ(engine.requests(), versionRequest() + i + x + bothOutputs);
}

TEST_F(DuringReregistration, AfterTheInputsOtherRequestsAreSentAtOnce) {
    stopAt(kBetween);
    EXPECT_EQ(engine.unregisterInputParameters({"I"}), 0);
    EXPECT_EQ(publishO(engine), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({"O"}), 0);
    finish();
    EXPECT_EQ(engine.requests(), versionRequest() + i + inputEnd({kUnassigned}) + publicationOf(7) + outputEnd({7}));
}

TEST_F(DuringReregistration, AfterItARegistrationIsSentAtOnce) {
    stopAt(kAfterReregistration);
    registerBoth();
    finish();
    EXPECT_EQ(engine.requests(), versionRequest() + i + o + x + y);
}

using WithNothingRegistered = ReadyChange;

TEST_F(WithNothingRegistered, ARegistrationAfterTheCountIsSentAtOnce) {
    stopAt(kAfterReregistration);
    registerBoth();
    finish();
    EXPECT_EQ(engine.requests(), versionRequest() + inputRequest({input("X")}) + outputRequest({output("Y")}));
}

// No hook stops the change while it counts what is registered, so another thread registers around that moment.
TEST_F(WithNothingRegistered, ARegistrationDuringTheCountIsSentOnce) {
    for (int round = 0; round < 200; ++round) {
        Gate begun;
        onPlace = [&begun](const std::string& place) {
            if (place == kReadyCallback) {
                begun.pass();
            }
        };
        engine.ignoreRequestsSoFar();
        begin();
        ASSERT_TRUE(begun.waitUntilReached());
        begun.open();
        // Spins, because a sleep takes too long on a busy machine.
        const auto moment = std::chrono::steady_clock::now() + std::chrono::microseconds(round % 20 * 5);
        while (std::chrono::steady_clock::now() < moment) {
        }
        registerBoth();
        finish();
        ASSERT_THAT(engine.requests(),
                    testing::UnorderedElementsAreArray(versionRequest() + inputRequest({input("X")}) +
                                                       outputRequest({output("Y")})))
            << "round " << round;
        engine.unregisterAllLocalParameters();
    }
}

}  // namespace
}  // namespace com_tesk::test
