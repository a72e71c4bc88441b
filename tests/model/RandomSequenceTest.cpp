#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <tuple>

#include "tests/model/Comparison.h"
#include "tests/model/Model.h"
#include "tests/model/RandomSequence.h"
#include "tests/model/Shrinking.h"
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

// A random test finds nothing in what it never reaches. The seed is fixed, because only the grammar is tested.
TEST(RandomSequences, ReachEveryKindOfEvent) {
    std::mt19937_64 random(1);
    std::string events;
    for (int i = 0; i < 150; ++i) {
        const StepSequence sequence = randomSequence(random, kStepsOfASequence);
        Model model(sequence.simulatorId, sequence.options);
        for (const Step& step : sequence.steps) {
            model.apply(step);
        }
        for (const std::string& event : model.log) {
            events += '\n' + event;
        }
    }
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
    for (const std::string& kind : kinds) {
        std::size_t at = 0;
        for (int count = 0; count < 3; ++count) {
            at = events.find(kind, at);
            ASSERT_NE(at, std::string::npos) << escaped(kind);
            ++at;
        }
    }
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

}  // namespace
}  // namespace com_tesk::test
