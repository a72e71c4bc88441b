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
    idsChange();
    inputsByName.erase(found, [this](std::uint32_t id) { inputNamesById.erase(id); });
}

InputTable::Entry* InputTable::confirm(Entries::Place& hint, std::uint32_t id, std::string_view name) {
    const Entries::Place found = inputsByName.findNear(hint, name);
    if (found == inputsByName.end()) {
        return nullptr;
    }
    idsChange();
    hint = std::next(found);
    Entry& entry = *found->second;
    // Hint for the common case: ids in ascending order.
    inputNamesById.insert_or_assign(inputNamesById.end(), id, entry.name);
    entry.serverId = id;
    return &entry;
}

const std::string* InputTable::nameOf(std::uint32_t id) {
    const auto* const known = updatedIndex.find(id);
    if (known != nullptr) {
        return &known->second;
    }
    const auto found = inputNamesById.find(id);
    if (found == inputNamesById.end()) {
        return nullptr;
    }
    updatedIndex.add(*found);
    return &found->second;
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
    idsChange();
    inputNamesById.clear();
    inputsByName.moveTo(taken);
}

void InputTable::clear() {
    idsChange();
    inputNamesById.clear();
    inputsByName.clear();
}

void InputTable::idsChange() {
    ++inputNamesVersion;
    updatedIndex.clear();
}

}  // namespace com_tesk
