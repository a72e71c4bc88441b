#include "tests/model/Comparison.h"

#include <cstdio>
#include <cstdlib>
#include <set>

#include "tests/model/EngineUnderTest.h"
#include "tests/model/Model.h"

namespace com_tesk::test {

namespace {

constexpr std::size_t kAllNamesEvery = 64;
constexpr std::size_t kFewNames = 1;

const std::string kSent = "sent ";

bool isFrame(const std::string& line) {
    return line.compare(0, kSent.size(), kSent) == 0;
}

void collectNames(const Step& step, std::set<std::string>& names) {
    const bool hasNames = step.kind < Step::BODY;
    for (const std::string& name : hasNames ? namesOf(step.records) : std::vector<std::string>()) {
        names.insert(name);
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

std::optional<Difference> firstDifference(const StepSequence& sequence,
                                          const std::function<void(const std::string&)>& onFrame) {
    std::set<std::string> named{"", "never named"};
    for (const Step& step : sequence.steps) {
        collectNames(step, named);
    }
    const std::vector<std::string> names(named.begin(), named.end());
    Model model(sequence.simulatorId, sequence.options);
    EngineUnderTest engine(sequence.simulatorId, sequence.options);
    for (std::size_t i = 0; i < sequence.steps.size(); ++i) {
        model.apply(sequence.steps[i]);
        engine.applyAll({sequence.steps[i]});
        if (sequence.steps[i].isNested()) {
            continue;  // It only waits for its event.
        }
        if (engine.holdsAnyLock()) {
            // The test could not even end, and standard error is caught.
            std::fprintf(stderr, "a lock was left held by: %s\n", textOf(sequence.steps[i]).c_str());
            std::_Exit(EXIT_FAILURE);
        }
        const bool isForAll = i % kAllNamesEvery == 0 || i + 1 == sequence.steps.size();
        std::vector<std::string> asked = isForAll ? names : std::vector<std::string>();
        for (std::size_t j = 0; j < kFewNames; ++j) {
            asked.push_back(names[(i * kFewNames + j) % names.size()]);
        }
        std::string what = engine.log == model.log ? "" : difference(listed(engine.log), listed(model.log));
        what += difference(engine.tables(), model.tables()) + difference(engine.answers(asked), model.answers(asked));
        if (!what.empty()) {
            return Difference{i, what};
        }
        for (const std::string& event : engine.log) {
            if (isFrame(event)) {
                onFrame(event.substr(kSent.size()));
            }
        }
        engine.log.clear();
        model.log.clear();
    }
    return std::nullopt;
}

}  // namespace com_tesk::test
