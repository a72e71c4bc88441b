#include "host/scenario/FaultSelector.h"

#include <algorithm>
#include <utility>

namespace com_tesk::scenario {

FaultSelector::FaultSelector(std::vector<Fault> allFaults, std::uint64_t seed)
    : faults(std::move(allFaults)), occasions(faults.size()), random(seed) {}

std::vector<FaultSelector::Choice> FaultSelector::choose(const Occasion& occasion) {
    std::vector<Choice> choices;
    for (std::size_t i = 0; i < faults.size(); ++i) {
        const Trigger& trigger = faults[i].trigger;
        if (trigger.moment != occasion.moment ||
            (trigger.message != Message::ANY && trigger.message != occasion.message) ||
            (trigger.connection != 0 && trigger.connection != occasion.connection)) {
            continue;
        }
        Selected selected(occasion.records.size(), trigger.name.empty());
        if (!trigger.name.empty()) {
            std::transform(occasion.records.begin(), occasion.records.end(), selected.begin(),
                           [&trigger](const Record& record) { return record.name == trigger.name; });
            if (std::find(selected.begin(), selected.end(), true) == selected.end()) {
                continue;
            }
        }
        if (isDue(i)) {
            choices.push_back({&faults[i].action, std::move(selected)});
        }
    }
    return choices;
}

bool FaultSelector::isDue(std::size_t index) {
    const Trigger& trigger = faults[index].trigger;
    const std::uint64_t number = ++occasions[index];
    if ((trigger.nth != 0 && number != trigger.nth) || (trigger.every != 0 && number % trigger.every != 0)) {
        return false;
    }
    if (trigger.chance >= 1) {
        return true;
    }
    // The engine's own numbers, because the distributions of the standard library differ between libraries.
    constexpr double kRange = 9007199254740992.0;  // 2^53
    return static_cast<double>(random() >> 11U) / kRange < trigger.chance;
}

Bytes FaultSelector::randomBytes(std::size_t size) {
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<std::uint8_t>(random() & 0xFFU); });
    return bytes;
}

}  // namespace com_tesk::scenario
