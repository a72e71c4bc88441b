#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "client/CSClient.h"
#include "comms/CSLockGuard.h"
#include "engine/RegistrationChecks.h"

namespace com_tesk {

/// What registering and unregistering have in common for inputs and outputs: the checks, and the entries' way into and
/// out of the tables. Every function here is called with `parameterMutex` held.
namespace registration {

/// Where each name of a call occurs for the last time.
template <typename Definition>
class LastOccurrences {
  public:
    LastOccurrences(const Definition* definitions, unsigned int count) {
        lastIndexes.reserve(count);
        for (unsigned int i = 0; i < count; ++i) {
            lastIndexes[definitions[i].name] = i;
        }
    }

    bool isLast(const std::string& name, unsigned int index) const { return lastIndexes.at(name) == index; }

  private:
    std::unordered_map<std::string_view, unsigned int> lastIndexes;
};

/// Enters the definitions one by one, in order, and appends their entries to `batch`. Stops at the first that is
/// refused and leaves those before it entered, deliberately: they reach the host at the next re-registration. The same
/// goes for a lack of memory.
/// @param reportInvalidType  the line for a definition without a type.
/// @return whether all were entered.
template <typename Definition, typename Entry>
bool enter(const Definition* definitions, unsigned int count, bool silent,
           void (*reportInvalidType)(const std::string&), std::map<std::string_view, Entry*>& byName,
           CSMutex& namesMutex, std::vector<Entry*>& batch) {
    const LastOccurrences<Definition> occurrences(definitions, count);
    for (unsigned int i = 0; i < count; ++i) {
        const Definition& definition = definitions[i];
        void (*report)(const std::string&) = nullptr;
        if (definition.type == CSClient::TYPE_UNDEFINED) {
            report = reportInvalidType;
        } else if (checks::isTooLong(definition.name)) {
            report = checks::reportTooLong;
        } else if (byName.count(definition.name) != 0) {
            report = checks::reportAlreadyRegistered;
        } else if (!occurrences.isLast(definition.name, i)) {
            report = checks::reportRequestedTwice;
        }
        if (report != nullptr) {
            if (!silent) {
                report(definition.name);
            }
            return false;
        }
        auto entry = std::make_unique<Entry>(Entry::of(definition));
        batch.push_back(entry.get());
        const CSLockGuard lock(namesMutex);
        byName.emplace(entry->name, entry.get());
        entry.release();
    }
    return true;
}

/// The entries of the names that are known, in the order of `names`; one named twice is there twice.
template <typename Entry>
std::vector<Entry*> find(const std::vector<std::string>& names, const std::map<std::string_view, Entry*>& byName) {
    std::vector<Entry*> batch;
    batch.reserve(names.size());
    for (const std::string& name : names) {
        const auto found = byName.find(name);
        if (found != byName.end()) {
            batch.push_back(found->second);
        }
    }
    return batch;
}

/// Whether an unregistration request that gave `result` lets the entries go. No sender gives 4, but it counts as
/// success.
constexpr bool isUnregistered(int result) {
    return (result & ~4) == 0;
}

/// Removes and destroys the entries of `names`; a name that is not, or no longer, there is passed over.
template <typename Entry, typename ById>
void forget(const std::vector<std::string>& names, std::map<std::string_view, Entry*>& byName, ById& byId,
            CSMutex& namesMutex) {
    const CSLockGuard lock(namesMutex);
    for (const std::string& name : names) {
        const auto found = byName.find(name);
        if (found != byName.end()) {
            const std::unique_ptr<Entry> entry(found->second);  // It holds the key.
            byId.erase(entry->serverId);
            byName.erase(found);
        }
    }
}

/// Destroys all entries and empties the table.
template <typename Entry>
void destroyEntries(std::map<std::string_view, Entry*>& byName) {
    while (!byName.empty()) {
        const std::unique_ptr<Entry> entry(byName.begin()->second);  // It holds the key.
        byName.erase(byName.begin());
    }
}

}  // namespace registration
}  // namespace com_tesk
