#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "client/CSClient.h"
#include "engine/CSClientProtocol.h"
#include "engine/EntryTable.h"
#include "engine/NameIndex.h"
#include "engine/ReregistrationGate.h"

namespace com_tesk {

/// The outputs: by name, with their last published values, and by the ids under which the host has confirmed them.
///
/// The caller holds `parameterMutex` in every operation but `names`, and `isPassed` of the gate.
class OutputTable {
  public:
    using Entry = CSClientProtocol::OutputParameterEntry;
    using Entries = EntryTable<Entry>;

    /// Every output, confirmed or not.
    const Entries& all() const { return outputsByName; }
    Entries& all() { return outputsByName; }

    /// Returns the number of outputs, or of ids under which the host has confirmed outputs.
    std::size_t size(bool confirmed) const { return confirmed ? outputsById.size() : outputsByName.size(); }

    /// @return true when every definition was inserted; see `EntryTable::insert`.
    bool insert(const CSClient::OutputDef* definitions, unsigned int count, bool silent, std::vector<Entry*>& batch);

    /// Removes the unregistered outputs.
    void erase(const Entries::Unregistration& found);

    /// Stores that the host has confirmed an output. An older id of the output stays.
    /// @param hint  the likely position of the output; set to the position after it when it is found.
    /// @return the entry; null when there is no such output.
    Entry* confirm(Entries::Place& hint, std::uint32_t id, std::string_view name);

    /// Returns the list for the outputs of a publish call of `count` records. When the call is too long to be kept
    /// for the next one, that is `longBatch`, which the caller owns.
    std::vector<Entry*>& batchFor(unsigned int count, std::vector<Entry*>& longBatch);

    /// Checks all records, then stores all their values.
    /// @param batch  as from `batchFor`. Filled with the outputs, record by record.
    /// @return false when a record is refused: no value was stored, and a line was printed unless `silent`.
    bool storeValues(const CSClient::Parameter* parameters, unsigned int count, bool silent,
                     std::vector<Entry*>& batch);

    void clear();

    /// Returns the names, in ascending order, without `parameterMutex`.
    std::vector<std::string> names() const { return outputsByName.names(); }

    ReregistrationGate& gate() { return registered; }
    const ReregistrationGate& gate() const { return registered; }

  private:
    friend class PartAccess;

    /// Finds an output by the name given to a publish call. Null when there is none.
    Entry* findPublished(const std::string& name);
    /// Erases the pointers to entries outside the tables. Call it before an entry is destroyed.
    void erasePublished();

    Entries outputsByName;
    /// Ids of earlier connections stay, also after their output is destroyed. So the pointers are never dereferenced.
    std::unordered_map<std::uint32_t, Entry*> outputsById;
    /// The outputs that publish calls have found since an output was last erased.
    NameIndex<Entry> publishedIndex;
    /// The outputs of the last publish call, record by record. An entry can be null when a call ended early.
    std::vector<Entry*> publishedBatch;
    ReregistrationGate registered;
};

}  // namespace com_tesk
