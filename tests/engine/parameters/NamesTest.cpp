#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/engine/parameters/ParameterEngine.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kZeroB("A\0B", 3);
const std::string kZeroC("A\0C", 3);

/// All names from \x80 to \xFF, of one character each, last first.
std::vector<std::string> highNamesBackwards() {
    std::vector<std::string> names;
    for (int byte = 0xFF; byte >= 0x80; --byte) {
        names.emplace_back(1, static_cast<char>(byte));
    }
    return names;
}

class Names : public testing::Test {
  protected:
    Names() { engine.pretendState(CSClient::STATE_READY); }

    CapturedStreams streams;
    ParameterEngine engine;
};

TEST_F(Names, AnEmptyNameIsANameLikeAnyOther) {
    EXPECT_EQ(engine.registerOutputs({output("")}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01"
                                                     "00 00 04 B0 00 00 00 00" +
                                                     hexField(""))));
    engine.receive(outputsConfirmed({{7, ""}}));
    EXPECT_TRUE(engine.hasOutputParameter("", true));
    EXPECT_EQ(engine.publish({record("", 1, 5)}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre(" type 1 id 7 published 00000005"));
    EXPECT_EQ(engine.unregisterOutputParameters({""}), 0);
    EXPECT_THAT(engine.outputTable(), IsEmpty());
}

TEST_F(Names, AnEmptyInputNameIsANameLikeAnyOther) {
    EXPECT_EQ(engine.registerInputs({input("", 2, 3)}), 0);
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 40 00 7F 00 01 00 01 00 00 00 00 00 01"
                                                     "00 01 D4 C0 00 01 D4 C0 00 00 00 01" +
                                                     hexField(""))));
    engine.receive(inputsConfirmed({{7, ""}}));
    EXPECT_EQ(engine.inputIds(), "7=");
}

TEST_F(Names, TwoEmptyNamesAreOneTooMany) {
    EXPECT_EQ(engine.registerOutputs({output(""), output("")}), 3);
    EXPECT_EQ(streams.err(), "Parameter '' is requested more than once in the same subscription call.\n");
}

TEST_F(Names, AnEmptyUnknownNameIsReportedAsSuch) {
    EXPECT_EQ(engine.publish({record("", 1, 5)}), 3);
    EXPECT_EQ(streams.err(), "Unknown parameter ID: \n");
}

TEST_F(Names, NamesThatDifferBehindAZeroByteAreDifferent) {
    EXPECT_EQ(engine.registerOutputs({output(kZeroB), output(kZeroC), output("A")}), 0);
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000", kZeroB + " type 1 waiting 00000000",
                                                  kZeroC + " type 1 waiting 00000000"));
    EXPECT_TRUE(engine.hasOutputParameter(kZeroC, false));
    EXPECT_FALSE(engine.hasOutputParameter(std::string("A\0", 2), false));
}

TEST_F(Names, InputNamesThatDifferBehindAZeroByteAreDifferent) {
    EXPECT_EQ(engine.registerInputs({input(kZeroB), input(kZeroC)}), 0);
    EXPECT_EQ(engine.registerInputs({input(kZeroC)}), 3);
    EXPECT_EQ(streams.err(), "Parameter '" + kZeroC + "' already registered.\n");
}

TEST_F(Names, ARequestCarriesANameUpToItsFirstZeroByte) {
    engine.registerOutputs({output(kZeroB)});
    engine.registerInputs({input(kZeroB)});
    EXPECT_THAT(engine.requests(), ElementsAre(frame("04 02 7F FF 00 00 00 3C 00 7F 00 02 00 01 00 00 00 00 00 01"
                                                     "00 00 04 B0 00 00 00 00" +
                                                     hexField("A")),
                                               frame("04 02 7F FF 00 00 00 40 00 7F 00 01 00 01 00 00 00 00 00 01"
                                                     "00 00 2E E0 00 00 2E E0 00 00 00 00" +
                                                     hexField("A"))));
}

TEST_F(Names, AConfirmationOfTheShortNameDoesNotMeanTheLongOne) {
    engine.registerOutputs({output(kZeroB)});
    engine.receive(outputsConfirmed({{7, "A"}}));
    EXPECT_FALSE(engine.hasOutputParameter(kZeroB, true));
    EXPECT_EQ(streams.err(), "Parameter not found: A(7)\n");
}

TEST_F(Names, TheLengthCountsZeroBytesToo) {
    const std::string name31 = "A" + std::string(30, '\0');
    const std::string name32 = "A" + std::string(31, '\0');
    EXPECT_EQ(engine.registerOutputs({output(name31)}), 0);
    EXPECT_EQ(engine.registerInputs({input(name31)}), 0);
    EXPECT_EQ(engine.registerOutputs({output(name32)}), 3);
    EXPECT_EQ(engine.registerInputs({input(name32)}), 3);
    EXPECT_EQ(engine.publish({record(name32, 1, 0)}), 3);
    const std::string line = "Length of parameter id string '" + name32 + "' exceeds maximum 32\n";
    EXPECT_EQ(streams.err(), line + line + line);
}

TEST_F(Names, LinesShowAZeroByteAndWhatIsBehindIt) {
    engine.registerOutputs({output(kZeroB, 0)});
    engine.registerOutputs({output(kZeroB), output(kZeroB)});
    engine.publish({record(kZeroC, 1, 0)});
    EXPECT_EQ(streams.err(), "Invalid parameter type for output id string '" + kZeroB + "'!\n" + "Parameter '" +
                                 kZeroB + "' is requested more than once in the same subscription call.\n" +
                                 "Unknown parameter ID: " + kZeroC + "\n");
}

TEST_F(Names, ANameWithAZeroByteIsPublishedFoundAndUnregistered) {
    engine.registerOutputs({output(kZeroB), output("A")});
    EXPECT_EQ(engine.publish({record(kZeroB, 1, 5)}), 0);
    CSClient::Parameter found;
    EXPECT_TRUE(engine.findPublishedParameter(kZeroB, found));
    EXPECT_EQ(text(found), kZeroB + " type 1 bits 00000005 reserved 0");
    engine.unregisterOutputParameters({kZeroB});
    EXPECT_THAT(engine.outputTable(), ElementsAre("A type 1 waiting 00000000"));
}

TEST_F(Names, HighBytesStandBehindAllOthersInTheTable) {
    engine.registerOutputs(
        {output("\xFF"), output("\x80"), output("\x7F"), output(""), output("a"), output("\xC3\xA4")});
    std::vector<CSClient::Parameter> all;
    engine.getAllPublishedParameters(all);
    std::vector<std::string> names;
    for (const CSClient::Parameter& parameter : all) {
        names.push_back(parameter.name);
    }
    EXPECT_THAT(names, ElementsAre("", "a", "\x7F", "\x80", "\xC3\xA4", "\xFF"));
}

TEST_F(Names, AShorterNameStandsBeforeTheOnesThatBeginWithIt) {
    engine.registerInputs({input("AB"), input(kZeroB), input("A"), input("A ")});
    EXPECT_THAT(engine.inputTable(), ElementsAre("A type 1 mode 1 waiting", kZeroB + " type 1 mode 1 waiting",
                                                 "A  type 1 mode 1 waiting", "AB type 1 mode 1 waiting"));
}

TEST_F(Names, HighBytesTravelUnchangedInByteOrder) {
    std::vector<CSClient::OutputDef> outputs;
    for (const std::string& name : highNamesBackwards()) {
        outputs.push_back(output(name));
    }
    engine.pretendState(CSClient::STATE_RECONNECTING);
    engine.registerOutputs(outputs);
    engine.pretendState(CSClient::STATE_READY);
    engine.reregisterAllOutputParameters();
    std::string body = "04 02 7F FF 00 00 14 14 00 7F 00 02 00 01 00 00 00 00 00 80";
    const std::string digits = "0123456789ABCDEF";
    for (unsigned int byte = 0x80; byte <= 0xFF; ++byte) {
        body += "00 00 04 B0 00 00 00 00" + std::string() + digits[byte / 16] + digits[byte % 16] + hexField("", 31);
    }
    EXPECT_THAT(engine.requests(), ElementsAre(frame(body)));
}

TEST_F(Names, LinesShowHighBytesUnchanged) {
    engine.registerInputs({input("\x80\xFF", 0)});
    EXPECT_EQ(streams.err(), "Subscription type of parameter id string '\x80\xFF' is invalid!\n");
}

TEST_F(Names, AHostConfirmsHighBytes) {
    engine.registerInputs({input("\x80\xFF")});
    engine.receive(inputsConfirmed({{7, "\x80\xFF"}}));
    EXPECT_TRUE(engine.hasInputParameter("\x80\xFF", true));
}

}  // namespace
}  // namespace com_tesk::test
