#include "tools/replay/Selection.h"

#include <algorithm>

namespace com_tesk::replay {

Selection::Selection(const Options& replayOptions) : options(replayOptions) {
    for (const auto& [recorded, name] : options.renamed) {
        back.insert_or_assign(name, recorded);
    }
}

std::optional<std::string> Selection::nameOf(const std::string& recorded) const {
    const auto& only = options.only;
    if (recorded.empty() || (!only.empty() && std::find(only.begin(), only.end(), recorded) == only.end())) {
        return std::nullopt;
    }
    const auto found = options.renamed.find(recorded);
    return found == options.renamed.end() ? recorded : found->second;
}

std::string Selection::recordedNameOf(const std::string& name) const {
    const auto found = back.find(name);
    return found == back.end() ? name : found->second;
}

Values Selection::of(const std::vector<recording::NamedValue>& recorded) const {
    Values values;
    values.reserve(recorded.size());
    for (const recording::NamedValue& value : recorded) {
        if (auto name = nameOf(value.name)) {
            values.emplace_back(std::move(*name), value.value);
        }
    }
    return values;
}

}  // namespace com_tesk::replay
