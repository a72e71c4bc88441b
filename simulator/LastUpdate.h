#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "client/CSClient.h"
#include "simulator/HostMessages.h"

namespace com_tesk {

/// The parameters of the last received update. Hosts usually send the same parameters each cycle, so only their
/// values are read again. Worker thread.
class LastUpdate {
  public:
    /// Reads an update. Records with an unknown id are skipped.
    /// @param namesVersion  changes when an id may name another input.
    /// @param nameOf        returns the name of an id as `const std::string*`, or null.
    template <typename NameOf>
    void read(wire::ValueUpdates updates, std::uint32_t namesVersion, const NameOf& nameOf) {
        if (isRepeatedBy(updates, namesVersion)) {
            for (unsigned int i = 0; i < updates.size(); ++i) {
                updates.read(i, values[i]);
            }
        } else {
            readNew(updates, namesVersion, nameOf);
        }
    }

    /// Returns the known parameters, in the order of the update.
    const std::vector<CSClient::Parameter>& parameters() const { return values; }

    /// Frees the memory when the update had more than 4096 records.
    void trim() {
        if (ids.size() > kMaxKept) {
            release();
        }
    }

  private:
    static constexpr std::size_t kMaxKept = 4'096;

    /// True when an update has the ids of the previous one, all of them known, under the same names.
    bool isRepeatedBy(wire::ValueUpdates updates, std::uint32_t namesVersion) const {
        if (!isComplete || keptNamesVersion != namesVersion || updates.size() != ids.size() ||
            updates.size() != values.size()) {
            return false;
        }
        for (unsigned int i = 0; i < updates.size(); ++i) {
            if (updates.id(i) != ids[i]) {
                return false;
            }
        }
        return true;
    }

    template <typename NameOf>
    void readNew(wire::ValueUpdates updates, std::uint32_t namesVersion, const NameOf& nameOf) {
        // False until the end, so that an update that runs out of memory is not reused.
        isComplete = false;
        ids.resize(updates.size());
        std::size_t known = 0;
        for (unsigned int i = 0; i < updates.size(); ++i) {
            const std::uint32_t id = updates.id(i);
            ids[i] = id;
            // Intended: the id 0 counts as unknown, even when the host has confirmed an input under it. 0 stands for
            // no parameter.
            const std::string* const name = id == 0 ? nullptr : nameOf(id);
            if (name != nullptr) {
                if (known == values.size()) {
                    values.emplace_back();
                }
                values[known].name = *name;
                updates.read(i, values[known]);
                ++known;
            }
        }
        values.resize(known);
        keptNamesVersion = namesVersion;
        isComplete = true;
    }

    [[gnu::cold]] void release() {
        std::vector<std::uint32_t>().swap(ids);
        std::vector<CSClient::Parameter>().swap(values);
    }

    /// The ids of all records of the update.
    std::vector<std::uint32_t> ids;
    /// The known parameters of the update.
    std::vector<CSClient::Parameter> values;
    /// True when the other members belong together.
    bool isComplete = false;
    /// The version of the names that the parameters have.
    std::uint32_t keptNamesVersion = 0;
};

}  // namespace com_tesk
