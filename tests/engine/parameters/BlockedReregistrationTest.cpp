// A write of the re-registration that does not end: other threads' operations wait for it, and nothing is lost.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>

#include "tests/engine/parameters/ReadyChange.h"

namespace com_tesk::test {
namespace {

constexpr std::chrono::seconds kOperationBound(10);

class BlockedReregistration : public ReadyChange {
  protected:
    /// Does `operation` on another thread while the write is blocked, and lets the change end.
    void operateAt(Place place, const std::function<int()>& operation) {
        holdAt(place);
        auto result = std::async(std::launch::async, operation);
        EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout) << "it has to wait";
        finish();
        ASSERT_EQ(result.wait_for(kOperationBound), std::future_status::ready);
        EXPECT_EQ(result.get(), 0);
    }

    std::function<int()> registerInput = [this] { return engine.registerInputs({input("X")}); };
    std::function<int()> registerOutput = [this] { return engine.registerOutputs({output("Y")}); };
    std::function<int()> publishOutput = [this] { return engine.publish({record("O", 1, 0x3FC00000)}); };
    std::function<int()> unregisterInput = [this] { return engine.unregisterInputParameters({"I"}); };
    std::function<int()> unregisterOutput = [this] { return engine.unregisterOutputParameters({"O"}); };
};

TEST_F(BlockedReregistration, OfInputsIsFollowedByAnInputOfAnotherThread) {
    registerInputBefore();
    operateAt(Place::INPUT_WRITE, registerInput);
    EXPECT_EQ(bodies(), versionRequest() + inputRequest({"I"}) + inputRequest({"X"}));
}

// It either is in time for the re-registration of outputs or comes after it: the bytes are the same.
TEST_F(BlockedReregistration, OfInputsIsFollowedByAnOutputOfAnotherThread) {
    registerInputBefore();
    operateAt(Place::INPUT_WRITE, registerOutput);
    EXPECT_EQ(bodies(), versionRequest() + inputRequest({"I"}) + outputRequest({"Y"}));
}

TEST_F(BlockedReregistration, OfInputsIsFollowedByTheirUnregistration) {
    registerInputBefore();
    operateAt(Place::INPUT_WRITE, unregisterInput);
    EXPECT_EQ(bodies(), versionRequest() + inputRequest({"I"}) + inputEnd("00 0F FF FF"));
}

TEST_F(BlockedReregistration, OfInputsLosesNoPublication) {
    registerInputBefore();
    registerOutputBefore();
    operateAt(Place::INPUT_WRITE, publishOutput);
    EXPECT_THAT(bodies(), testing::UnorderedElementsAreArray(versionRequest() + inputRequest({"I"}) +
                                                             outputRequest({"O"}) + publication("00 00 00 07")));
}

TEST_F(BlockedReregistration, OfInputsWithOutputsRequestsAnInputOnce) {
    registerInputBefore();
    registerOutputBefore();
    operateAt(Place::INPUT_WRITE, registerInput);
    EXPECT_THAT(bodies(), testing::UnorderedElementsAreArray(versionRequest() + inputRequest({"I"}) +
                                                             inputRequest({"X"}) + outputRequest({"O"})));
}

TEST_F(BlockedReregistration, OfInputsWithOutputsRequestsAnOutputOnce) {
    registerInputBefore();
    registerOutputBefore();
    operateAt(Place::INPUT_WRITE, registerOutput);
    EXPECT_THAT(bodies(),
                testing::AnyOf(versionRequest() + inputRequest({"I"}) + outputRequest({"O", "Y"}),
                               versionRequest() + inputRequest({"I"}) + outputRequest({"O"}) + outputRequest({"Y"})));
}

TEST_F(BlockedReregistration, OfOutputsIsFollowedByAnInputOfAnotherThread) {
    registerOutputBefore();
    operateAt(Place::OUTPUT_WRITE, registerInput);
    EXPECT_EQ(bodies(), versionRequest() + outputRequest({"O"}) + inputRequest({"X"}));
}

TEST_F(BlockedReregistration, OfOutputsIsFollowedByAnOutputOfAnotherThread) {
    registerInputBefore();
    registerOutputBefore();
    operateAt(Place::OUTPUT_WRITE, registerOutput);
    EXPECT_EQ(bodies(), versionRequest() + inputRequest({"I"}) + outputRequest({"O"}) + outputRequest({"Y"}));
}

TEST_F(BlockedReregistration, OfOutputsIsFollowedByTheirPublication) {
    registerOutputBefore();
    operateAt(Place::OUTPUT_WRITE, publishOutput);
    EXPECT_EQ(bodies(), versionRequest() + outputRequest({"O"}) + publication("00 00 00 07"));
}

TEST_F(BlockedReregistration, OfOutputsIsFollowedByTheirUnregistration) {
    registerOutputBefore();
    operateAt(Place::OUTPUT_WRITE, unregisterOutput);
    EXPECT_EQ(bodies(), versionRequest() + outputRequest({"O"}) + outputEnd("00 00 00 07"));
}

}  // namespace
}  // namespace com_tesk::test
