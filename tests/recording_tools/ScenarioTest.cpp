// csx convert --to scenario as a process. The reader of scenarios and cshost run read what it writes.

#include <algorithm>

#include "tests/recording_tools/Tools.h"
#include "tests/support/Emulator.h"
#include "tools/scenario/ScenarioFile.h"

namespace com_tesk::recording_test {
namespace {

class Scenario : public ToolTest {
  protected:
    /// Converts the log, and reads the scenario without flaws.
    scenario::ScenarioFile converted(const std::string& text) const {
        const Ended result = csx({"convert", log(text), "--to", "scenario", "-o", path("made.yaml")});
        EXPECT_EQ(result.code, 0) << result.err;
        std::vector<scenario::Flaw> flaws;
        scenario::ScenarioFile file = scenario::readScenarioFile(path("made.yaml"), flaws);
        EXPECT_TRUE(flaws.empty()) << flaws.front().line << ": " << flaws.front().text << '\n'
                                   << directory.read("made.yaml");
        return file;
    }
    std::string yaml() const { return directory.read("made.yaml"); }
};

TEST_F(Scenario, ValuesLossesAndExpectationsAreThose) {
    const scenario::ScenarioFile file = converted(threeLosses());
    EXPECT_EQ(file.host.versionText, "host 1.2");
    EXPECT_EQ(file.host.protocolVersion, 9U);
    ASSERT_EQ(file.scenario.values.size(), 2U);
    EXPECT_TRUE(contains(
        yaml(), R"(  "altitude": {steps: [[0s, 0], [0.5s, 12.5], [2.000004s, 0], [2.5s, 13.1], [4.000004s, 0]]})"))
        << yaml();
    EXPECT_TRUE(contains(yaml(), R"(  "gear": {steps: [[0s, 1], [0.5s, 2], [2.000004s, 1]], type: int})")) << yaml();
    EXPECT_TRUE(contains(yaml(),
                         "  - {at: 1s, do: {drop: close}, label: loss-1}\n"
                         "  - {at: 3s, do: {drop: reset}, label: loss-2}\n"
                         "  - {at: 5s, do: {restart: {down: 0.5s}}, label: loss-3}\n"))
        << yaml();
    // Registered; the first and the last value of the button; registered again after each loss.
    EXPECT_EQ(file.scenario.expectations.size(), 5U);
    EXPECT_TRUE(
        contains(yaml(), R"({published: {name: "button", value: 1.5, tolerance: 1.5e-06}, within: 10.000007s,)"))
        << yaml();
    EXPECT_TRUE(
        contains(yaml(), R"(then: [{published: {name: "button", value: 0.1, tolerance: 1e-07}, within: 16.499993s}])"))
        << yaml();
}

TEST_F(Scenario, ManyValuesAreAFileNextToIt) {
    std::string text = headerLine() + connectionLines(0, 1);
    for (int i = 0; i < 2000; ++i) {
        text += updateLine(std::to_string(1 + i / 100) + '.' + std::to_string(10 + i % 100 / 2) + "0000",
                           R"(["altitude",)" + std::to_string(i) + ".5]");
    }
    const scenario::ScenarioFile file = converted(text);
    EXPECT_TRUE(contains(yaml(), R"(  "altitude": {from: "made-1.csv", column: value})")) << yaml();
    const std::string csv = directory.read("made-1.csv");
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 2002);
    // The times of values ascend, also where two arrived at the same time.
    EXPECT_TRUE(contains(csv, "\n1.1,0.5\n1.100001,1.5\n1.11,2.5\n")) << csv.substr(0, 200);
    EXPECT_TRUE(contains(yaml(), "  \"gear\": i:1\n")) << yaml();
    EXPECT_EQ(file.scenario.values.size(), 2U);
}

TEST_F(Scenario, HostileNamesAndValuesStayValid) {
    const std::string names =
        R"(["a\"b: {c}\\\n#",1.0],["tab\té\u007f",2.0],[{"hex":"ff"},3.0],["x","nan"],["- *a",4.0])";
    const scenario::ScenarioFile file =
        converted(headerLine() + connectionLines(0, 1) + updateLine("1.000000", names) + updateLine("2.000000", names) +
                  publishLine("3.000000", R"(["x","inf"])"));
    std::vector<std::string> read;
    for (const auto& source : file.scenario.values) {
        read.push_back(source.name);
    }
    std::sort(read.begin(), read.end());
    const std::vector<std::string> expected{"- *a", "a\"b: {c}\\\n#", "altitude", "gear", "tab\té\x7f"};
    EXPECT_EQ(read, expected);
    EXPECT_TRUE(contains(yaml(), R"({published: {name: "x"})")) << yaml();
}

TEST_F(Scenario, PublishedNamesAreLeftToTheProgram) {
    const auto file = converted(headerLine() + connectionLines(0, 1) + updateLine("1.000000", R"(["button",1.5])"));
    EXPECT_FALSE(contains(yaml(), R"(  "button":)")) << yaml();
    EXPECT_EQ(file.scenario.values.size(), 2U);
}

TEST_F(Scenario, RefusedNamesStayRefused) {
    const auto file = converted(
        headerLine() +
        entryLine("0.500000", R"("register-inputs","connection":1,"parameters":[{"name":"nix","type":"float"}])") +
        connectionLines(1, 1));
    ASSERT_TRUE(file.host.knownNames.has_value());
    EXPECT_EQ(*file.host.knownNames, (std::set<std::string>{"altitude", "button", "gear"}));
}

TEST_F(Scenario, SubscribedValuesNeedNoClientInTheRecording) {
    const std::string text = headerLine() +
                             entryLine("1.000000", R"("inputs-confirmed","connection":1,"parameters":)"
                                                   R"([{"name":"a","type":"float","value":2.5}])") +
                             updateLine("61.000000", R"(["a",3.5])");
    EXPECT_EQ(converted(text).scenario.values.size(), 1U);
    EXPECT_TRUE(contains(yaml(), "end: 70s\n")) << yaml();
}

TEST_F(Scenario, ARecordingWithoutRegistrationsIsRefused) {
    const Ended result = csx({"convert", log(headerLine()), "--to", "scenario", "-o", path("made.yaml")});
    EXPECT_EQ(result.code, 1);
    EXPECT_TRUE(contains(result.err, "no client has registered anything")) << result.err;
    EXPECT_FALSE(directory.has("made.yaml"));
}

TEST_F(Scenario, TheRecordedClientMeetsIt) {
    const std::string text = headerLine() + connectionLines(1, 1) + updateLine("1.100000", R"(["altitude",12.5])") +
                             publishLine("1.300000", R"(["button",4.0])") + entryLine("1.400000", R"("end")");
    converted(text);
    ChildProcess::Setup setup;
    setup.path = CSHOST_PATH;
    Arguments arguments{"run", path("made.yaml"), "--"};
    const Arguments program = test::commandOf(CSX_PATH);
    arguments.insert(arguments.end(), program.begin(), program.end());
    arguments.insert(arguments.end(), {"replay", path("log.jsonl"), "--as", "client", "--loop"});
    ChildProcess cshost(setup, arguments);
    EXPECT_EQ(cshost.exitCode(), 0) << cshost.outText() << cshost.errText();
}

}  // namespace
}  // namespace com_tesk::recording_test
