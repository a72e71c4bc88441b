#include "tests/model/StepRunner.h"

#include <cstdio>
#include <cstdlib>
#include <set>

#include "tests/model/Model.h"

namespace com_tesk::test {

namespace {

constexpr std::size_t kAllNamesEvery = 64;

const std::string kSent = "sent ";

bool isFrame(const std::string& line) {
    return line.compare(0, kSent.size(), kSent) == 0;
}

void collectNames(const Step& step, std::set<std::string>& names) {
    if (step.kind < Step::BODY) {
        const std::vector<std::string> ofRecords = namesOf(step.records);
        names.insert(ofRecords.begin(), ofRecords.end());
    }
    for (const Step& inner : step.inside) {
        collectNames(inner, names);
    }
}

std::string listed(const EventLog& log) {
    std::string text;
    for (const std::string& event : log) {
        text += "\n    " + (isFrame(event) ? kSent + escaped(event.substr(kSent.size())) : event);
    }
    return text;
}

std::string difference(const std::string& engine, const std::string& model) {
    return engine == model ? "" : "the engine:" + engine + "\nthe model:" + model + "\n";
}

}  // namespace

void StepRunner::apply(const Step& step) {
    // Such a step waits for a thread that changes the tables. While that thread waits in turn, the step is left out.
    const bool needsTables = step.kind <= Step::QUERY;
    if (othersHoldTables && needsTables) {
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
        StepRunner::applyAll(next.inside);
        return;
    }
    const bool heldTables = std::exchange(othersHoldTables, othersHoldTables || holdsTables());
    const bool heldChange = std::exchange(othersHoldChange, othersHoldChange || holdsChange());
    performOnAnotherThread(next.inside);
    othersHoldTables = heldTables;
    othersHoldChange = heldChange;
}

std::optional<Difference> firstDifference(const StepSequence& sequence,
                                          const std::function<void(const std::string&)>& onFrame) {
    std::set<std::string> named{"", "never named"};
    for (const Step& step : sequence.steps) {
        collectNames(step, named);
    }
    const std::vector<std::string> names(named.begin(), named.end());
    Model model(sequence.simulatorId, sequence.options);
    const std::unique_ptr<StepRunner> engine = newEngineUnderTest(sequence.simulatorId, sequence.options);
    for (std::size_t i = 0; i < sequence.steps.size(); ++i) {
        const Step& step = sequence.steps[i];
        model.apply(step);
        engine->applyAll({step});
        if (step.isNested()) {
            continue;  // It only waits for its event.
        }
        if (engine->holdsAnyLock()) {
            // The test could not even end, and standard error is caught.
            std::fprintf(stderr, "a lock was left held by: %s\n", textOf(step).c_str());
            std::_Exit(EXIT_FAILURE);
        }
        const bool isForAll = i % kAllNamesEvery == 0 || i + 1 == sequence.steps.size();
        std::vector<std::string> asked = isForAll ? names : std::vector<std::string>();
        asked.push_back(names[i % names.size()]);
        std::string what = engine->log == model.log ? "" : difference(listed(engine->log), listed(model.log));
        what += difference(engine->tables(), model.tables()) + difference(engine->answers(asked), model.answers(asked));
        if (!what.empty()) {
            return Difference{i, what};
        }
        for (const std::string& event : engine->log) {
            if (isFrame(event)) {
                onFrame(event.substr(kSent.size()));
            }
        }
        engine->log.clear();
        model.log.clear();
    }
    return std::nullopt;
}

}  // namespace com_tesk::test
