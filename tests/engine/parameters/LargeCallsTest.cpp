#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

constexpr unsigned int kCount = 10'000;

/// "P10000" to "P19999": in name order as in number order.
std::string name(unsigned int index) {
    return "P" + std::to_string(10'000 + index);
}

std::vector<CSClient::OutputDef> manyOutputs() {
    std::vector<CSClient::OutputDef> outputs;
    for (unsigned int i = 0; i < kCount; ++i) {
        outputs.push_back(output(name(i)));
    }
    return outputs;
}

std::vector<CSClient::InputDef> manyInputs() {
    std::vector<CSClient::InputDef> inputs;
    for (unsigned int i = 0; i < kCount; ++i) {
        inputs.push_back(input(name(i)));
    }
    return inputs;
}

std::vector<std::string> manyNames() {
    std::vector<std::string> names;
    for (unsigned int i = 0; i < kCount; ++i) {
        names.push_back(name(i));
    }
    return names;
}

class LargeCalls : public testing::Test {
  protected:
    LargeCalls() { engine.pretendState(CSClient::STATE_READY); }

    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(LargeCalls, TenThousandOutputsGoOutInOneRequest) {
    EXPECT_EQ(engine.registerOutputs(manyOutputs()), 0);
    std::string body = "04 02 7F FF 00 06 1A 94 00 7F 00 02 00 01 00 00 00 00 27 10";
    for (const std::string& each : manyNames()) {
        body += "00 00 04 B0 00 00 00 00" + hexField(each);
    }
    ASSERT_EQ(engine.requests().size(), 1U);
    EXPECT_TRUE(engine.requests()[0] == frame(body));
    EXPECT_EQ(engine.getNumberOfOutputParametersWaitingForConfirmation(), 10'000);
}

TEST_F(LargeCalls, TenThousandInputsGoOutInOneRequest) {
    EXPECT_EQ(engine.registerInputs(manyInputs()), 0);
    std::string body = "04 02 7F FF 00 06 B6 D4 00 7F 00 01 00 01 00 00 00 00 27 10";
    for (const std::string& each : manyNames()) {
        body += "00 00 2E E0 00 00 2E E0 00 00 00 00" + hexField(each);
    }
    ASSERT_EQ(engine.requests().size(), 1U);
    EXPECT_TRUE(engine.requests()[0] == frame(body));
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 10'000);
}

TEST_F(LargeCalls, ADoubleOfTheFirstOutputAtTheFarEndIsFoundBeforeAnythingIsCreated) {
    auto outputs = manyOutputs();
    outputs.back().name = "P10000";
    EXPECT_EQ(engine.registerOutputs(outputs), 3);
    EXPECT_EQ(streams.err(), "Parameter 'P10000' is requested more than once in the same subscription call.\n");
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 0U);
    EXPECT_TRUE(engine.requests().empty());
}

TEST_F(LargeCalls, ADoubleOfTheFirstInputAtTheFarEndIsFoundBeforeAnythingIsCreated) {
    auto inputs = manyInputs();
    inputs.back().name = "P10000";
    EXPECT_EQ(engine.registerInputs(inputs), 3);
    EXPECT_EQ(streams.err(), "Parameter 'P10000' is requested more than once in the same subscription call.\n");
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 0U);
}

TEST_F(LargeCalls, ADoubleAmongTheLastTwoOutputsKeepsAllBeforeThem) {
    auto outputs = manyOutputs();
    outputs.back().name = "P19998";
    EXPECT_EQ(engine.registerOutputs(outputs), 3);
    EXPECT_EQ(streams.err(), "Parameter 'P19998' is requested more than once in the same subscription call.\n");
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 9'998U);
    EXPECT_TRUE(engine.requests().empty());
}

TEST_F(LargeCalls, ADoubleAmongTheLastTwoInputsKeepsAllBeforeThem) {
    auto inputs = manyInputs();
    inputs.back().name = "P19998";
    EXPECT_EQ(engine.registerInputs(inputs), 3);
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 9'998U);
    EXPECT_TRUE(engine.requests().empty());
}

TEST_F(LargeCalls, AnInvalidLastOutputKeepsAllBeforeIt) {
    auto outputs = manyOutputs();
    outputs.back().type = 0;
    EXPECT_EQ(engine.registerOutputs(outputs), 3);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 9'999U);
    EXPECT_TRUE(engine.requests().empty());
}

TEST_F(LargeCalls, TenThousandValuesGoOutInOneRequest) {
    engine.registerOutputs(manyOutputs());
    std::vector<CSClient::Parameter> parameters;
    std::string body = "04 02 7F FF 00 01 D4 D8 00 7F 00 03 00 01 00 00 00 00 00 00 00 00 27 10";
    for (unsigned int i = 0; i < kCount; ++i) {
        parameters.push_back(record(name(i), 1, i));
        body += "00 0F FF FF 00 00 00 00" + hexWord(i);
    }
    EXPECT_EQ(engine.publish(parameters), 0);
    ASSERT_EQ(engine.requests().size(), 2U);
    EXPECT_TRUE(engine.requests()[1] == frame(body));
}

TEST_F(LargeCalls, AnUnknownNameAtTheFarEndOfAPublicationChangesNothing) {
    engine.registerOutputs(manyOutputs());
    std::vector<CSClient::Parameter> parameters;
    for (unsigned int i = 0; i < kCount; ++i) {
        parameters.push_back(record(name(i), 1, 1));
    }
    parameters.back().name = "X";
    EXPECT_EQ(engine.publish(parameters), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: X\n");
    EXPECT_EQ(engine.requests().size(), 1U);
    for (const std::string& line : engine.outputTable()) {
        ASSERT_EQ(line.substr(6), " type 1 waiting 00000000");
    }
}

TEST_F(LargeCalls, TenThousandOutputsAreUnregisteredInOneRequest) {
    engine.registerOutputs(manyOutputs());
    EXPECT_EQ(engine.unregisterOutputParameters(manyNames()), 0);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 0U);
    std::string body = "04 02 7F FF 00 00 9C 54 00 7F 00 05 00 01 00 00 00 00 27 10";
    for (unsigned int i = 0; i < kCount; ++i) {
        body += "00 0F FF FF";
    }
    ASSERT_EQ(engine.requests().size(), 2U);
    EXPECT_TRUE(engine.requests()[1] == frame(body));
}

TEST_F(LargeCalls, OneNameTenThousandTimesIsUnregisteredOnce) {
    engine.registerInputs({input("A"), input("B")});
    EXPECT_EQ(engine.unregisterInputParameters(std::vector<std::string>(kCount, "A")), 0);
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 1U);
    EXPECT_EQ(engine.requests().back().size(), (32U + 20U + 4U * kCount) * 3U - 1U);
}

TEST_F(LargeCalls, AllOfTenThousandAreUnregisteredAtOnce) {
    engine.registerInputs(manyInputs());
    engine.registerOutputs(manyOutputs());
    engine.unregisterAllInputParameters();
    engine.unregisterAllOutputParameters();
    EXPECT_EQ(engine.getNumberOfInputParameters(false), 0U);
    EXPECT_EQ(engine.getNumberOfOutputParameters(false), 0U);
    EXPECT_EQ(engine.requests().size(), 4U);
}

TEST_F(LargeCalls, TenThousandInputsAreRegisteredAgainInOneRequest) {
    engine.registerInputs(manyInputs());
    engine.reregisterAllInputParameters();
    ASSERT_EQ(engine.requests().size(), 2U);
    EXPECT_TRUE(engine.requests()[0] == engine.requests()[1]);
    EXPECT_EQ(engine.getNumberOfInputParametersWaitingForConfirmation(), 10'000);
}

}  // namespace
}  // namespace com_tesk::test
