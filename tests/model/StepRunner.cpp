#include "tests/model/StepRunner.h"

namespace com_tesk::test {

namespace {

/// Such a step waits for a thread that changes the tables. While that thread waits in turn, the step is left out.
bool needsTables(const Step& step) {
    return step.kind <= Step::QUERY;
}

}  // namespace

void StepRunner::apply(const Step& step) {
    if (othersHoldTables && needsTables(step)) {
        return;
    }
    if (step.isNested()) {
        insides[{step.numbers[0], step.numbers[1]}].push_back(step);
    } else if (step.kind == Step::QUERY) {
        log.push_back(answers(namesOf(step.records)));
    } else if (const std::optional<std::uint32_t> result = perform(step)) {
        log.push_back("result " + std::to_string(*result));
    }
}

void StepRunner::callBack(std::uint32_t callback, Step::Event event, const std::string& what) {
    log.push_back(std::to_string(callback) + ' ' + what);
    happen(event, callback);
}

void StepRunner::happen(Step::Event event, std::uint32_t number) {
    std::deque<Step>* waiting = &insides[{event, number}];
    if (waiting->empty() && event < Step::CALLBACKS) {
        waiting = &insides[{Step::ANY_CALLBACK, 0}];
    }
    if (waiting->empty()) {
        return;
    }
    const Step next = std::move(waiting->front());
    waiting->pop_front();
    if (next.kind == Step::DURING) {
        for (const Step& step : next.inside) {
            apply(step);
        }
        return;
    }
    const bool heldTables = std::exchange(othersHoldTables, othersHoldTables || holdsTables());
    const bool heldChange = std::exchange(othersHoldChange, othersHoldChange || holdsChange());
    performOnAnotherThread(next.inside);
    othersHoldTables = heldTables;
    othersHoldChange = heldChange;
}

}  // namespace com_tesk::test
