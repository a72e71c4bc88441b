// What happens to registrations, unregistrations and publications during a change to ready, as far as nothing that they
// need is locked.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

using PlaceAndBefore = std::tuple<Place, Before>;

std::string caseName(const testing::TestParamInfo<PlaceAndBefore>& testCase) {
    return placeName(std::get<Place>(testCase.param)) + "With" + std::get<Before>(testCase.param).name;
}

class ChangeWithBefore : public ReadyChange {
  protected:
    void registerBefore(const Before& newBefore) {
        before = newBefore;
        if (before.hasInput) {
            registerInputBefore();
        }
        if (before.hasOutput) {
            registerOutputBefore();
        }
    }

    /// I when it is there, and these, which come after it by name.
    std::vector<std::string> inputsWith(std::vector<std::string> names) const {
        if (before.hasInput) {
            names.insert(names.begin(), "I");
        }
        return names;
    }

    /// As above, with O.
    std::vector<std::string> outputsWith(std::vector<std::string> names) const {
        if (before.hasOutput) {
            names.insert(names.begin(), "O");
        }
        return names;
    }

    Before before{};
};

/// The places before the re-registration, up to and including those at which it begins.
class BeforeReregistration : public ChangeWithBefore, public testing::WithParamInterface<PlaceAndBefore> {
  protected:
    BeforeReregistration() { registerBefore(std::get<Before>(GetParam())); }

    void hold() { holdAt(std::get<Place>(GetParam())); }

    /// What goes out at once at this place, and the requests of the change.
    Bodies withVersion(const Bodies& atOnce, const Bodies& reregistration) const {
        const bool isVersionOut = std::get<Place>(GetParam()) == Place::AFTER_VERSION;
        return (isVersionOut ? versionRequest() + atOnce : atOnce + versionRequest()) + reregistration;
    }
};

INSTANTIATE_TEST_SUITE_P(At, BeforeReregistration,
                         testing::Combine(testing::Values(Place::CONNECTED_CALLBACK, Place::READY_CALLBACK,
                                                          Place::VERSION_WRITE, Place::AFTER_VERSION),
                                          testing::ValuesIn(kBefore)),
                         caseName);

TEST_P(BeforeReregistration, AnotherThreadsInputIsRequestedOnce) {
    hold();
    EXPECT_EQ(engine.registerInputs({input("X")}), 0);
    EXPECT_TRUE(engine.hasInputParameter("X", false));
    finish();
    EXPECT_EQ(bodies(), withVersion({}, inputRequest(inputsWith({"X"})) + outputRequest(outputsWith({}))));
}

TEST_P(BeforeReregistration, AnotherThreadsOutputIsRequestedOnce) {
    hold();
    EXPECT_EQ(engine.registerOutputs({output("X")}), 0);
    EXPECT_TRUE(engine.hasOutputParameter("X", false));
    finish();
    EXPECT_EQ(bodies(), withVersion({}, inputRequest(inputsWith({})) + outputRequest(outputsWith({"X"}))));
}

TEST_P(BeforeReregistration, AnotherThreadsInputAndOutputAreRequestedOnce) {
    hold();
    EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
    EXPECT_EQ(engine.registerInputs({input("Z"), input("X")}), 0);
    finish();
    EXPECT_EQ(bodies(), withVersion({}, inputRequest(inputsWith({"X", "Z"})) + outputRequest(outputsWith({"Y"}))));
}

TEST_P(BeforeReregistration, ARegistrationTakenBackIsNotRequested) {
    hold();
    EXPECT_EQ(engine.registerInputs({input("X")}), 0);
    EXPECT_EQ(engine.registerOutputs({output("X")}), 0);
    EXPECT_EQ(engine.unregisterInputParameters({"X"}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({"X"}), 0);
    finish();
    EXPECT_EQ(bodies(), withVersion(inputEnd("00 0F FF FF") + outputEnd("00 0F FF FF"),
                                    inputRequest(inputsWith({})) + outputRequest(outputsWith({}))))
        << "unregistering goes out at once, with the id of an unconfirmed parameter";
}

TEST_P(BeforeReregistration, APublicationOfAnUnrequestedOutputGoesOutAtOnce) {
    hold();
    EXPECT_EQ(engine.registerOutputs({output("X")}), 0);
    EXPECT_EQ(engine.publish({record("X", 1, 0x3FC00000)}), 0);
    finish();
    EXPECT_EQ(bodies(), withVersion(publication("00 0F FF FF"),
                                    inputRequest(inputsWith({})) + outputRequest(outputsWith({"X"}))));
}

TEST_P(BeforeReregistration, EarlierParametersAreUnregisteredAtOnce) {
    hold();
    EXPECT_EQ(engine.unregisterInputParameters({"I"}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({"O"}), 0);
    finish();
    EXPECT_EQ(bodies(), withVersion((before.hasInput ? inputEnd("00 00 00 09") : Bodies()) +
                                        (before.hasOutput ? outputEnd("00 00 00 07") : Bodies()),
                                    {}));
}

TEST_P(BeforeReregistration, AnEarlierOutputIsPublishedAtOnce) {
    hold();
    EXPECT_EQ(engine.publish({record("O", 1, 0x3FC00000)}), before.hasOutput ? 0 : 3);
    finish();
    EXPECT_EQ(bodies(), withVersion(before.hasOutput ? publication("00 00 00 07") : Bodies(),
                                    inputRequest(inputsWith({})) + outputRequest(outputsWith({}))));
}

TEST_P(BeforeReregistration, ARefusedRegistrationLeavesWhatWasEntered) {
    hold();
    EXPECT_EQ(engine.registerInputs({input("X"), input("Y", 0), input("Z")}), 3);
    EXPECT_EQ(engine.registerOutputs({output("X"), output("Y", 0), output("Z")}), 3);
    finish();
    EXPECT_EQ(bodies(), withVersion({}, inputRequest(inputsWith({"X"})) + outputRequest(outputsWith({"X"}))));
}

TEST_P(BeforeReregistration, ANameRegisteredTwiceIsRefusedAndRequestedOnce) {
    hold();
    EXPECT_EQ(engine.registerInputs({input("I")}), before.hasInput ? 3 : 0);
    EXPECT_EQ(engine.registerInputs({input("I")}), 3);
    EXPECT_EQ(engine.registerOutputs({output("O")}), before.hasOutput ? 3 : 0);
    EXPECT_EQ(engine.registerOutputs({output("O")}), 3);
    finish();
    EXPECT_EQ(bodies(), withVersion({}, inputRequest({"I"}) + outputRequest({"O"})));
}

TEST_P(BeforeReregistration, AfterTheChangeARegistrationGoesOutAtOnce) {
    hold();
    finish();
    EXPECT_EQ(engine.registerInputs({input("X")}), 0);
    EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
    EXPECT_EQ(bodies(), versionRequest() + inputRequest(inputsWith({})) + outputRequest(outputsWith({})) +
                            inputRequest({"X"}) + outputRequest({"Y"}));
}

// What the thread that makes the change does in a callback.

class InsideCallback : public ChangeWithBefore, public testing::WithParamInterface<PlaceAndBefore> {
  protected:
    InsideCallback() { registerBefore(std::get<Before>(GetParam())); }

    void act(std::function<void()> action) { actAt(std::get<Place>(GetParam()), std::move(action)); }
};

INSTANTIATE_TEST_SUITE_P(At, InsideCallback,
                         testing::Combine(testing::Values(Place::CONNECTED_CALLBACK, Place::READY_CALLBACK),
                                          testing::ValuesIn(kBefore)),
                         caseName);

TEST_P(InsideCallback, ARegistrationGoesOutAtOnceAndWithEverything) {
    act([this] {
        EXPECT_EQ(engine.registerInputs({input("X")}), 0);
        EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
    });
    EXPECT_EQ(bodies(), inputRequest({"X"}) + outputRequest({"Y"}) + versionRequest() +
                            inputRequest(inputsWith({"X"})) + outputRequest(outputsWith({"Y"})));
}

TEST_P(InsideCallback, UnregisteringAndPublishingGoOutAtOnce) {
    act([this] {
        engine.unregisterInputParameters({"I"});
        engine.publish({record("O", 1, 0x3FC00000)});
    });
    EXPECT_EQ(bodies(), (before.hasInput ? inputEnd("00 00 00 09") : Bodies()) +
                            (before.hasOutput ? publication("00 00 00 07") : Bodies()) + versionRequest() +
                            outputRequest(outputsWith({})));
}

TEST_P(InsideCallback, AnotherThreadsRegistrationIsStillLeft) {
    act([this] {
        EXPECT_EQ(engine.registerInputs({input("X")}), 0);
        std::thread([this] { EXPECT_EQ(engine.registerInputs({input("Y")}), 0); }).join();
    });
    EXPECT_EQ(bodies(), inputRequest({"X"}) + versionRequest() + inputRequest(inputsWith({"X", "Y"})) +
                            outputRequest(outputsWith({})));
}

// The gaps of the re-registration itself, which need an input.

class AmidReregistration : public ReadyChange {
  protected:
    AmidReregistration() {
        registerInputBefore();
        registerOutputBefore();
    }

    /// Another thread does these, and each is requested exactly once.
    void registerBoth() {
        EXPECT_EQ(engine.registerInputs({input("X")}), 0);
        EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
    }
};

TEST_F(AmidReregistration, AfterTheSnapshotAnInputGoesOutAtOnce) {
    holdAt(Place::AFTER_SNAPSHOT);
    registerBoth();
    finish();
    EXPECT_EQ(bodies(), versionRequest() + inputRequest({"X"}) + inputRequest({"I"}) + outputRequest({"O", "Y"}));
}

TEST_F(AmidReregistration, BetweenTheTwoOnlyAnOutputIsLeft) {
    holdAt(Place::BETWEEN);
    registerBoth();
    finish();
    EXPECT_EQ(bodies(), versionRequest() + inputRequest({"I"}) + inputRequest({"X"}) + outputRequest({"O", "Y"}));
}

TEST_F(AmidReregistration, BetweenTheTwoTheRestGoesOutAtOnce) {
    holdAt(Place::BETWEEN);
    EXPECT_EQ(engine.unregisterInputParameters({"I"}), 0);
    EXPECT_EQ(engine.publish({record("O", 1, 0x3FC00000)}), 0);
    EXPECT_EQ(engine.unregisterOutputParameters({"O"}), 0);
    finish();
    EXPECT_EQ(bodies(), versionRequest() + inputRequest({"I"}) + inputEnd("00 0F FF FF") + publication("00 00 00 07") +
                            outputEnd("00 00 00 07"));
}

TEST_F(AmidReregistration, AfterItARegistrationGoesOutAtOnce) {
    holdAt(Place::AFTER_REREGISTRATION);
    registerBoth();
    finish();
    EXPECT_EQ(bodies(), versionRequest() + inputRequest({"I"}) + outputRequest({"O"}) + inputRequest({"X"}) +
                            outputRequest({"Y"}));
}

using WithNothingBefore = ReadyChange;

TEST_F(WithNothingBefore, AfterTheCountARegistrationGoesOutAtOnce) {
    holdAt(Place::AFTER_REREGISTRATION);
    EXPECT_EQ(engine.registerInputs({input("X")}), 0);
    EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
    finish();
    EXPECT_EQ(bodies(), versionRequest() + inputRequest({"X"}) + outputRequest({"Y"}));
}

// The count of what is registered cannot be held up, so another thread registers around it at any moment.
TEST_F(WithNothingBefore, AroundTheCountARegistrationIsRequestedOnce) {
    for (int round = 0; round < 200; ++round) {
        Gate begun;
        engine.onPlace = [&begun](Place place) {
            if (place == Place::READY_CALLBACK) {
                begun.pass();
            }
        };
        const std::size_t old = engine.fakeTransport().written().size();
        changer = engine.startChange([this] { engine.connect(); });
        ASSERT_TRUE(begun.waitUntilReached());
        begun.open();
        // Without giving the processor away, which would take long on a busy machine.
        const auto moment = std::chrono::steady_clock::now() + std::chrono::microseconds(round % 20 * 5);
        while (std::chrono::steady_clock::now() < moment) {
        }
        EXPECT_EQ(engine.registerInputs({input("X")}), 0);
        EXPECT_EQ(engine.registerOutputs({output("Y")}), 0);
        finish();
        Bodies sent = bodies();
        sent.erase(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(old));
        ASSERT_THAT(sent,
                    testing::UnorderedElementsAreArray(versionRequest() + inputRequest({"X"}) + outputRequest({"Y"})))
            << "round " << round;
        engine.unregisterAllLocalParameters();
    }
}

}  // namespace
}  // namespace com_tesk::test
