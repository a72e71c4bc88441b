#include "engine/InputTable.h"

#include <iterator>

namespace com_tesk {

bool InputTable::insert(const CSClient::InputDef* definitions, unsigned int count, bool silent,
                        std::vector<Entry*>& batch) {
    // The diagnostic for a missing type names the subscription type. The subscription mode is not checked: hosts
    // decide which modes they accept.
    return inputsByName.insert(definitions, count, silent, checks::reportInvalidSubscriptionType, batch);
}

void InputTable::erase(const Entries::Unregistration& found) {
    ++inputNamesVersion;
    inputsByName.erase(found, [this](std::uint32_t id) { inputNamesById.erase(id); });
}

InputTable::Entry* InputTable::confirm(Entries::Place& hint, std::uint32_t id, std::string_view name) {
    const auto found = inputsByName.findNear(hint, name);
    if (found == inputsByName.end()) {
        return nullptr;
    }
    ++inputNamesVersion;
    hint = std::next(found);
    Entry& entry = *found->second;
    inputNamesById.insert_or_assign(id, entry.name);
    entry.serverId = id;
    return &entry;
}

const std::string* InputTable::nameOf(std::uint32_t id) const {
    const auto found = inputNamesById.find(id);
    return found == inputNamesById.end() ? nullptr : &found->second;
}

std::vector<CSClient::InputDef> InputTable::definitions() const {
    std::vector<CSClient::InputDef> copies;
    copies.reserve(inputsByName.size());
    for (const auto& nameAndEntry : inputsByName) {
        copies.push_back(nameAndEntry.second->definition());
    }
    return copies;
}

void InputTable::takeAll(Entries& taken) {
    ++inputNamesVersion;
    inputNamesById.clear();
    inputsByName.moveTo(taken);
}

void InputTable::clear() {
    ++inputNamesVersion;
    inputNamesById.clear();
    inputsByName.clear();
}

}  // namespace com_tesk
