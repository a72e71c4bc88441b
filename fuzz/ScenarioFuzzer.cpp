// Scenario files. The input is the text of a file.

#include <string>
#include <vector>

#include "fuzz/Fuzzing.h"
#include "tools/scenario/ScenarioFile.h"

using namespace com_tesk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    std::vector<scenario::Flaw> flaws;
    // No file is there: a flaw of the text, and nothing of this machine is read.
    const scenario::ScenarioFile file = scenario::readScenario(text, "/nonexistent", flaws);
    for (const scenario::Flaw& flaw : flaws) {
        CSCLIENT_FUZZ_CHECK(!flaw.text.empty());
    }
    if (!flaws.empty()) {
        return 0;
    }
    // What was accepted can be played and described.
    for (const scenario::Expectation& expectation : file.scenario.expectations) {
        CSCLIENT_FUZZ_CHECK(!scenario::describe(expectation).empty());
    }
    for (const Scenario::Fault& fault : file.scenario.faults) {
        const bool isPermitted =
            fault.trigger.moment == scenario::Trigger::Moment::SEND      ? scenario::appliesToSent(fault.action)
            : fault.trigger.moment == scenario::Trigger::Moment::RECEIVE ? scenario::appliesToReceived(fault.action)
                                                                         : scenario::appliesToAccepted(fault.action);
        CSCLIENT_FUZZ_CHECK(isPermitted);
    }
    for (const Scenario::Step& step : file.scenario.timeline) {
        CSCLIENT_FUZZ_CHECK(scenario::appliesToTimeline(step.action) && step.time >= Scenario::Duration(0));
    }
    for (const scenario::ValueSource& source : file.scenario.values) {
        scenario::Duration time{-1};
        for (int i = 0; i < 100; ++i) {
            const auto next = source.nextAfter(time);
            if (!next) {
                break;
            }
            CSCLIENT_FUZZ_CHECK(*next > time);
            CSCLIENT_FUZZ_CHECK(source.at(*next).has_value());
            time = *next;
        }
    }
    return 0;
}
