#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>
#include <tuple>

#include "tests/model/Comparison.h"
#include "tests/model/RandomLife.h"
#include "tests/model/Shrinking.h"
#include "tests/support/Seed.h"
#include "tests/support/TestSize.h"

namespace com_tesk::test {
namespace {

constexpr std::size_t kStepsOfALife = 500;
constexpr std::chrono::seconds kShrinkingTime{20};

struct Profile {
    const char* name;
    Weights weights;
};

Weights alike() {
    return {};
}

Weights confirmations() {
    Weights weights;
    weights.registration = 60;
    weights.unregistration = 40;
    weights.confirmation = 60;
    weights.update = 30;
    weights.loss = 1;
    weights.close = 0;
    weights.failedWrite = 1;
    return weights;
}

Weights outages() {
    Weights weights;
    weights.loss = 10;
    weights.failedWrite = 10;
    weights.version = 4;
    return weights;
}

Weights callbacksThatCallBack() {
    Weights weights;
    weights.callbacks = 6;
    weights.inside = 40;
    weights.version = 4;
    return weights;
}

/// A life that ends the whole process is found in the file that CSCLIENT_MODEL_KEEP names.
void keep(const Life& life) {
    if (const char* const file = std::getenv("CSCLIENT_MODEL_KEEP")) {
        std::ofstream(file) << textOf(life);
    }
}

/// The second parameter is a number that does nothing: several tests alike run side by side.
class RandomLife : public testing::TestWithParam<std::tuple<Profile, int>> {};

TEST_P(RandomLife, IsAsTheModelSays) {
    std::mt19937_64 random(newSeed());
    const std::size_t lives = sized<std::size_t>(6'500, 125'000) / kStepsOfALife;
    for (std::size_t i = 0; i < lives; ++i) {
        const Life life = randomLife(random, kStepsOfALife, std::get<Profile>(GetParam()).weights);
        keep(life);
        if (!firstDifference(life)) {
            continue;
        }
        const Life shortest = shrunk(
            life, [](const Life& candidate) { return firstDifference(candidate).has_value(); }, kShrinkingTime);
        FAIL() << "Life " << i
               << ". Replay with CSCLIENT_MODEL_SCRIPT=file model_tests --gtest_filter=*Given* of a file that holds:\n"
               << textOf(shortest) << "\n"
               << firstDifference(shortest)->what;
    }
}

std::string caseName(const testing::TestParamInfo<std::tuple<Profile, int>>& info) {
    return std::get<Profile>(info.param).name + std::to_string(std::get<int>(info.param));
}

INSTANTIATE_TEST_SUITE_P(Of, RandomLife,
                         testing::Combine(testing::Values(Profile{"EverythingAlike", alike()},
                                                          Profile{"Confirmations", confirmations()},
                                                          Profile{"Outages", outages()},
                                                          Profile{"CallbacksThatCallBack", callbacksThatCallBack()}),
                                          testing::Range(1, 5)),
                         caseName);

}  // namespace
}  // namespace com_tesk::test
