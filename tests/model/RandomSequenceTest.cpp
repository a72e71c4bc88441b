#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include "tests/model/Model.h"
#include "tests/model/RandomSequence.h"
#include "tests/model/StepRunner.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kStepsOfASequence = 500;
constexpr std::chrono::seconds kShrinkingTime{20};

/// Rules that make some steps more frequent.
struct Profile {
    const char* name;
    const char* rules;
};

constexpr Profile kProfiles[] = {
    {"Everything", ""},
    {"ManyConfirmations",
     "step = 60 * <registration> | 40 * <unregistration> | 20 * <publication> | 90 * <message> | 2 * <version>\n"
     "step = 3 * <damage> | <loss> | 16 * <connection> | <failure> | 4 * <callbacks> | 4 * <nested> | 3 * <other>"},
    {"ManyOutages",
     "step = 30 * <registration> | 20 * <unregistration> | 20 * <publication> | 40 * <message> | 4 * <version>\n"
     "step = 10 * <loss> | <close> | 130 * <connection> | 10 * <failure> | 4 * <callbacks> | 4 * <nested> | <wait>"},
    {"ManyCallsInCallbacks",
     "step = 30 * <registration> | 20 * <unregistration> | 20 * <publication> | 40 * <message> | 4 * <version>\n"
     "step = 2 * <loss> | <close> | 34 * <connection> | 2 * <failure> | 6 * <callbacks> | 40 * <nested> | <wait>"},
};

/// The second parameter only multiplies the tests, which run side by side.
class RandomSequence : public testing::TestWithParam<std::tuple<Profile, int>> {};

TEST_P(RandomSequence, MatchesTheModel) {
    std::mt19937_64 random(newSeed());
    const std::size_t sequences = sized<std::size_t>(6'500, 125'000) / kStepsOfASequence;
    for (std::size_t i = 0; i < sequences; ++i) {
        const StepSequence sequence = randomSequence(random, kStepsOfASequence, std::get<Profile>(GetParam()).rules);
        // For a sequence that ends the whole process.
        if (const char* const file = std::getenv("CSCLIENT_MODEL_KEEP")) {
            std::ofstream(file) << textOf(sequence);
        }
        if (!firstDifference(sequence)) {
            continue;
        }
        const auto fails = [](const StepSequence& candidate) { return firstDifference(candidate).has_value(); };
        const StepSequence shortest = shrunk(sequence, fails, kShrinkingTime);
        FAIL() << "StepSequence " << i
               << ". Replay with CSCLIENT_MODEL_SCRIPT=file model_tests --gtest_filter=*Given* of a file that holds:\n"
               << textOf(shortest) << "\n"
               << firstDifference(shortest)->what;
    }
}

INSTANTIATE_TEST_SUITE_P(Of, RandomSequence, testing::Combine(testing::ValuesIn(kProfiles), testing::Range(1, 5)),
                         [](const auto& test) {
                             return std::get<Profile>(test.param).name + std::to_string(std::get<int>(test.param));
                         });

/// The kinds of events, each by a part of its text.
std::vector<std::string> kindsOfEvents() {
    std::vector<std::string> kinds;
    std::istringstream texts(
        "\nresult 0;\nresult 1;\nresult 2;\nresult 3;\nconnect;\ndisconnect;\nsleep; state 0->1; state 1->2;"
        " state 2->4; state 4->5; state 5->1; state 4->3; state 1->3; state 3->0; inputs confirmed ; outputs confirmed "
        ";"
        " updated ;\nout Re-registering;\nout Registering;\nout Simulator;\nout Found;\nout Attempting;"
        "\nerr Subscription;\nerr Length;\nerr Parameter;\nerr Invalid;\nerr Unknown;\nerr Error;\nerr Connection;"
        "\nerr Read;\nerr EXIT:;\xFExxx");
    for (std::string text; std::getline(texts, text, ';');) {
        kinds.push_back(text);
    }
    for (const char code : std::string("\1\2\3\4\5\6")) {
        kinds.push_back(std::string("\0\x7F\0", 3) + code);
    }
    return kinds;
}

/// Returns whether the text has the part three times.
bool hasThrice(const std::string& text, const std::string& part) {
    std::size_t at = 0;
    for (int count = 0; count < 3; ++count) {
        at = text.find(part, at);
        if (at == std::string::npos) {
            return false;
        }
        ++at;
    }
    return true;
}

// A random test finds nothing in what it never reaches. The seed is fixed, because only the grammar is tested.
TEST(RandomSequences, ReachEveryKindOfEvent) {
    std::mt19937_64 random(1);
    std::vector<std::string> unreached = kindsOfEvents();
    std::string events;
    for (int i = 0; i < 150 && !unreached.empty(); ++i) {
        const StepSequence sequence = randomSequence(random, kStepsOfASequence);
        Model model(sequence.simulatorId, sequence.options);
        for (const Step& step : sequence.steps) {
            model.apply(step);
        }
        for (const std::string& event : model.log) {
            events += '\n' + event;
        }
        unreached.erase(std::remove_if(unreached.begin(), unreached.end(),
                                       [&](const std::string& kind) { return hasThrice(events, kind); }),
                        unreached.end());
    }
    EXPECT_TRUE(unreached.empty()) << escaped(unreached.front());
}

/// The files of scripts/, and the one that CSCLIENT_MODEL_SCRIPT names.
std::vector<fs::path> scripts() {
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(CSCLIENT_MODEL_SCRIPTS)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    if (const char* const given = std::getenv("CSCLIENT_MODEL_SCRIPT")) {
        files.emplace_back(given);
    }
    return files;
}

class Script : public testing::TestWithParam<fs::path> {};

TEST_P(Script, MatchesTheModel) {
    std::ostringstream text;
    text << std::ifstream(GetParam()).rdbuf();
    const StepSequence sequence = sequenceFrom(text.str());
    ASSERT_FALSE(sequence.steps.empty()) << GetParam();
    const auto difference = firstDifference(sequence);
    EXPECT_FALSE(difference.has_value()) << "at step " << difference->step + 1 << ", "
                                         << textOf(sequence.steps[difference->step]) << ":\n"
                                         << difference->what;
}

std::string scriptName(const testing::TestParamInfo<fs::path>& info) {
    std::string name = info.param.stem().string();
    name.erase(std::remove_if(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }),
               name.end());
    return (info.param.parent_path() == fs::path(CSCLIENT_MODEL_SCRIPTS) ? "" : "Given") + name;
}

INSTANTIATE_TEST_SUITE_P(Scripts, Script, testing::ValuesIn(scripts()), scriptName);

constexpr std::chrono::seconds kAmpleTime{60};

TEST(Shrinking, KeepsTheTwoStepsThatFail) {
    std::string text = "engine 7 2\n";
    for (int i = 0; i < 100; ++i) {
        text += i == 30   ? "registerInputs B,1,0 A,1,3\n"
                : i == 71 ? "unregisterInputs X A Y\n"
                          : "open\nconnect\npublish 0 Q,1,5\n";
    }
    const auto fails = [](const StepSequence& candidate) {
        const std::string left = textOf(candidate);
        const std::size_t registered = left.find(" A,1,3");
        return registered != std::string::npos && left.find(" A", registered + 1) != std::string::npos;
    };
    const StepSequence shortest = shrunk(sequenceFrom(text), fails, kAmpleTime);
    EXPECT_EQ(textOf(shortest), "engine 7 2\nregisterInputs A,1,3\nunregisterInputs A\n");
}

TEST(Shrinking, DropsStepsAndRecordsInsideACallback) {
    const StepSequence sequence = sequenceFrom("during 3 0 publish 0 A,1,1 ; registerOutputs B,1 C,1 ; end\nend\n");
    const auto fails = [](const StepSequence& candidate) { return textOf(candidate).find("C,1") != std::string::npos; };
    EXPECT_EQ(textOf(shrunk(sequence, fails, kAmpleTime)), "engine 1 0\nduring 3 0 registerOutputs C,1\n");
}

TEST(Shrinking, EndsWhenTheTimeIsOver) {
    StepSequence sequence;
    sequence.steps.resize(1000);
    int tries = 0;
    const auto fails = [&tries](const StepSequence&) { return ++tries >= 0; };
    EXPECT_EQ(shrunk(sequence, fails, std::chrono::milliseconds(0)).steps.size(), 1000U);
    EXPECT_EQ(tries, 0);
}

TEST(StepText, OfARandomSequenceIsReadBackUnchanged) {
    std::mt19937_64 random(newSeed());
    const std::string text = textOf(randomSequence(random, 2000));
    EXPECT_EQ(textOf(sequenceFrom(text)), text);
}

TEST(StepText, EscapesNamesOfAnyBytes) {
    const std::string text = "engine 1 0\nregisterInputs '',1,2 A%00%2C%25%20B,2,3 %371,0,0\nbody %00%FF%2C\n";
    const StepSequence sequence = sequenceFrom(text);
    ASSERT_EQ(sequence.steps.size(), 2U);
    ASSERT_EQ(sequence.steps[0].records.size(), 3U);
    EXPECT_EQ(sequence.steps[0].records[0].name, "");
    EXPECT_EQ(sequence.steps[0].records[1].name, std::string("A\0,% B", 6));
    EXPECT_EQ(sequence.steps[0].records[1].values[1], 3U);
    EXPECT_EQ(sequence.steps[0].records[2].name, "71");
    EXPECT_EQ(sequence.steps[1].records[0].name, std::string("\0\xFF,", 3));
    EXPECT_EQ(textOf(sequence), text);
}

// Shrinking leaves such steps.
TEST(StepText, ReadsAnEventWithNothingInside) {
    const std::string text = "engine 1 0\nduring 0 1\nmeanwhile 4 0\nmeanwhile 5 0 wait 4 2 ; forceClose\nend\n";
    const StepSequence sequence = sequenceFrom(text);
    ASSERT_EQ(sequence.steps.size(), 4U);
    EXPECT_TRUE(sequence.steps[0].inside.empty());
    EXPECT_EQ(sequence.steps[2].inside.size(), 2U);
    EXPECT_EQ(textOf(sequence), text);
}

TEST(StepText, RefusesUnknownStepsAndMissingOrSurplusNumbers) {
    std::istringstream texts(
        "registerInput A,1,1;registerInputs A,x,1;registerInputs A,,1;registerInputs A,1;registerInputs A;"
        "registerInputs A,1,;registerInputs A,1,1,1;registerOutputs A;unregisterInputs A,1;update 1 0 '',1,2;"
        "update 1 0 '',1,2,3,4;update 1 '',1,2,3;publish;publish A,1,1;publish -1;publish +1;publish 4294967296;"
        "version 1 2 3 A;version 1 2 3 4 5;open 3;lose;wait 1;failWrite 1;add;reregister A;during;during 0 forceClose;"
        "during 0 0 wait 1;meanwhile 4;engine;engine 1;engine 1 x;body %4;body %4x");
    for (std::string text; std::getline(texts, text, ';');) {
        EXPECT_THROW(sequenceFrom(text), std::logic_error) << text;
    }
}

}  // namespace
}  // namespace com_tesk::test
