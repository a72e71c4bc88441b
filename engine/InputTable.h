#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "client/CSClient.h"
#include "engine/CSClientProtocol.h"
#include "engine/EntryTable.h"
#include "engine/ReregistrationGate.h"

namespace com_tesk {

/// The inputs: by name, and by the ids under which the host has confirmed them.
///
/// The caller holds `parameterMutex` in every operation but `names`, and `isPassed` of the gate.
class InputTable {
  public:
    using Entry = CSClientProtocol::InputParameterEntry;
    using Entries = EntryTable<Entry>;

    /// Every input, confirmed or not.
    const Entries& all() const { return inputsByName; }
    Entries& all() { return inputsByName; }

    /// Returns the number of inputs, or of ids under which the host has confirmed inputs.
    std::size_t size(bool confirmed) const { return confirmed ? inputNamesById.size() : inputsByName.size(); }

    /// @return true when every definition was inserted; see `EntryTable::insert`.
    bool insert(const CSClient::InputDef* definitions, unsigned int count, bool silent, std::vector<Entry*>& batch);

    /// Removes the unregistered inputs.
    void erase(const Entries::Unregistration& found);

    /// Stores that the host has confirmed an input. An older id of the input stays, and still denotes it.
    /// @param hint  the likely position of the input; set to the position after it when it is found.
    /// @return the entry; null when there is no such input.
    Entry* confirm(Entries::Place& hint, std::uint32_t id, std::string_view name);

    /// Returns the name of the input that the host has confirmed under `id`, or null. Valid until `version` changes.
    const std::string* nameOf(std::uint32_t id) const;

    /// Returns a number that changes when names may have got other ids.
    std::uint32_t version() const { return inputNamesVersion; }

    /// Returns copies of all definitions.
    std::vector<CSClient::InputDef> definitions() const;

    /// Moves all entries to `taken` and erases all ids.
    void takeAll(Entries& taken);

    /// Moves back entries that are not in the table, as unconfirmed. Allocates nothing.
    void restore(Entries& taken) { inputsByName.merge(taken); }

    void clear();

    /// Returns the names, in ascending order, without `parameterMutex`.
    std::vector<std::string> names() const { return inputsByName.names(); }

    ReregistrationGate& gate() { return registered; }
    const ReregistrationGate& gate() const { return registered; }

  private:
    friend class PartAccess;

    Entries inputsByName;
    std::unordered_map<std::uint32_t, std::string> inputNamesById;
    std::uint32_t inputNamesVersion = 0;
    ReregistrationGate registered;
};

}  // namespace com_tesk
