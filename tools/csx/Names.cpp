#include "tools/csx/Names.h"

#include <set>

#include "tools/csx/Client.h"
#include "tools/csx/Texts.h"

namespace com_tesk::csx {

std::vector<NamedInput> declareInputs(Session& session, const std::vector<std::string>& names, Delivery delivery) {
    std::vector<NamedInput> inputs;
    std::set<std::string> known;
    for (const std::string& name : names) {
        if (known.insert(name).second) {
            inputs.push_back({name, session.input<Number>(name, delivery)});
        }
    }
    return inputs;
}

bool reportUnconfirmed(const std::vector<std::pair<std::string, bool>>& confirmed, const std::string& when) {
    constexpr std::size_t kMaxShown = 10;
    std::string names;
    std::size_t count = 0;
    for (const auto& [name, isConfirmed] : confirmed) {
        if (!isConfirmed && ++count <= kMaxShown) {
            names += ' ' + shownName(name);
        }
    }
    if (count > kMaxShown) {
        names += " and " + std::to_string(count - kMaxShown) + " more";
    }
    if (count != 0) {
        say("not confirmed " + when + ':' + names);
    }
    return count != 0;
}

bool reportUnconfirmed(const std::vector<NamedInput>& inputs, const std::string& when) {
    std::vector<std::pair<std::string, bool>> confirmed;
    confirmed.reserve(inputs.size());
    for (const NamedInput& named : inputs) {
        confirmed.emplace_back(named.name, named.input.isConfirmed());
    }
    return reportUnconfirmed(confirmed, when);
}

}  // namespace com_tesk::csx
