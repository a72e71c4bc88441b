#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

#include "client/CSClient.h"
#include "engine/CSClientProtocol.h"
#include "engine/EntryTable.h"
#include "engine/LookupIndex.h"
#include "engine/ReregistrationGate.h"

namespace com_tesk {

/// The outputs: by name, with the values published last, and by the ids under which the host has confirmed them.
///
/// Its user holds `parameterMutex` in every operation but `names`.
class OutputTable {
  public:
    using Entry = CSClientProtocol::OutputParameterEntry;
    using Entries = EntryTable<Entry>;

    /// Every output, confirmed or not.
    const Entries& all() const { return outputsByName; }
    Entries& all() { return outputsByName; }

    /// The number of outputs, or of ids under which the host has confirmed outputs.
    std::size_t size(bool confirmed) const { return confirmed ? outputsById.size() : outputsByName.size(); }

    /// @return whether every definition was inserted; see `EntryTable::insert`.
    bool insert(const CSClient::OutputDef* definitions, unsigned int count, bool silent, std::vector<Entry*>& batch);

    /// Removes what was unregistered.
    void erase(const Entries::Unregistration& found);

    /// The host has confirmed an output. An older id of it stays.
    /// @param hint  where the output may be; the place after it when it is found.
    /// @return the entry; null when there is no such output.
    Entry* confirm(Entries::Place& hint, std::uint32_t id, std::string_view name);

    /// Where a publish call of `count` records lists its outputs: in `longBatch`, which is the caller's, when the call is
    /// too long to be kept for the next one.
    std::vector<Entry*>& batchFor(unsigned int count, std::vector<Entry*>& longBatch);

    /// Checks all records, then stores all their values.
    /// @param batch  as from `batchFor`. Filled with the outputs, record by record.
    /// @return false when a record is refused, which prints a line unless `silent`: then no value was stored.
    bool storeValues(const CSClient::Parameter* parameters, unsigned int count, bool silent,
                     std::vector<Entry*>& batch);

    void clear();

    /// The names, in ascending order, without `parameterMutex`.
    std::vector<std::string> names() const { return outputsByName.names(); }

    ReregistrationGate& gate() { return registered; }
    const ReregistrationGate& gate() const { return registered; }

  private:
    friend class PartAccess;

    /// Finds an output by the name given to a publish call. Null when there is none.
    Entry* findPublished(const std::string& name);
    /// To be called before an entry is destroyed: erases what points to it besides the tables.
    void erasePublished();

    Entries outputsByName;
    /// Where the nodes of `outputsById` lie side by side: as blocks of their own each would cost a third more.
    std::pmr::unsynchronized_pool_resource outputIdNodes;
    /// Ids of earlier connections stay, also after their output is gone, so the pointers are never followed.
    std::pmr::map<std::uint32_t, Entry*> outputsById{&outputIdNodes};
    /// The outputs that were published most recently, by name.
    LookupIndex<Entry, NameKey> publishedIndex;
    /// The outputs of the last publish call, record by record; null where a call ended early.
    std::vector<Entry*> publishedBatch;
    ReregistrationGate registered;
};

}  // namespace com_tesk
