#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <random>
#include <string>

#include "tests/model/Model.h"
#include "tests/model/RandomLife.h"

namespace com_tesk::test {
namespace {

/// What is happening, without its particulars: "sent 3", "err Unknown", "1 updated values" ...
std::string kindOf(const std::string& event) {
    constexpr std::size_t kMessageCode = 32 + 11;
    if (event.compare(0, 5, "sent ") == 0) {
        return event.size() > 5 + kMessageCode ? "sent " + std::to_string(event[5 + kMessageCode]) : "sent a short one";
    }
    const std::size_t firstBlank = event.find(' ');
    const std::size_t secondBlank = event.find(' ', firstBlank + 1);
    if (event.find("state") == firstBlank + 1) {
        return event.substr(firstBlank + 1);
    }
    if (event.find("confirmed ") != std::string::npos || event.find("updated ") != std::string::npos) {
        return event.substr(firstBlank + 1, secondBlank - firstBlank) + "with values";
    }
    return event.substr(0, secondBlank);
}

// A random test finds nothing in what it never reaches. The seed is fixed: this is about the drawing alone.
TEST(RandomLives, ReachEverything) {
    std::mt19937_64 random(1);
    std::map<std::string, int> counts;
    for (int i = 0; i < 150; ++i) {
        const Life life = randomLife(random, 500, {});
        Model model(life.simulatorId, life.options);
        for (const Step& step : life.steps) {
            model.apply(step);
        }
        for (const std::string& event : model.log) {
            ++counts[kindOf(event)];
        }
    }
    for (const char* const kind : {"result 0",
                                   "result 1",
                                   "result 2",
                                   "result 3",
                                   "sent 1",
                                   "sent 2",
                                   "sent 3",
                                   "sent 4",
                                   "sent 5",
                                   "sent 6",
                                   "sent a short one",
                                   "sent 115",
                                   "state 0->1",
                                   "state 1->2",
                                   "state 2->4",
                                   "state 4->5",
                                   "state 5->1",
                                   "state 4->3",
                                   "state 1->3",
                                   "state 3->0",
                                   "connect",
                                   "disconnect",
                                   "sleep",
                                   "inputs with values",
                                   "outputs with values",
                                   "updated with values",
                                   "out Re-registering",
                                   "out Registering",
                                   "out Simulator",
                                   "out Found",
                                   "out Attempting",
                                   "err Subscription",
                                   "err Length",
                                   "err Parameter",
                                   "err Invalid",
                                   "err Unknown",
                                   "err Error",
                                   "err Connection",
                                   "err Read",
                                   "err EXIT:"}) {
        EXPECT_GE(counts[kind], 3) << kind;
    }
    if (HasFailure()) {
        for (const auto& kindAndCount : counts) {
            std::cout << kindAndCount.first << ": " << kindAndCount.second << '\n';
        }
    }
}

}  // namespace
}  // namespace com_tesk::test
