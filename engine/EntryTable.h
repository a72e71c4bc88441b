#pragma once

#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/CSClient.h"
#include "comms/CSLockGuard.h"
#include "comms/CSMutex.h"
#include "engine/DuplicateNames.h"
#include "engine/RegistrationChecks.h"

namespace com_tesk {

/// The registered parameters of one kind, by name, and the rules for registering them. Owns the entries.
///
/// The caller holds `parameterMutex` in every operation but `names`.
template <typename Entry>
class EntryTable {
  public:
    /// The keys refer to the names in the entries.
    using Map = std::map<std::string_view, Entry*>;
    using Place = typename Map::iterator;

    /// The entries that a call unregisters.
    struct Unregistration {
        /// The entries of the known names, in the order of the call. A name that occurs twice is there twice.
        std::vector<Entry*> batch;
        /// The position of each entry in the table, once.
        std::vector<Place> places;
    };

    EntryTable() = default;
    EntryTable(const EntryTable&) = delete;
    EntryTable& operator=(const EntryTable&) = delete;
    ~EntryTable() { clear(); }

    bool isEmpty() const { return byName.empty(); }
    std::size_t size() const { return byName.size(); }
    Place begin() { return byName.begin(); }
    Place end() { return byName.end(); }
    typename Map::const_iterator begin() const { return byName.begin(); }
    typename Map::const_iterator end() const { return byName.end(); }

    /// Returns the entry, or null.
    Entry* find(std::string_view name) const {
        const auto found = byName.find(name);
        return found == byName.end() ? nullptr : found->second;
    }

    /// Returns the position of `name`, or the end. Constant time when `hint` matches, as when callers list names in
    /// order.
    Place findNear(Place hint, std::string_view name) {
        return hint != byName.end() && hint->first == name ? hint : byName.find(name);
    }

    /// True when the parameter is registered and, if `confirmed` is true, confirmed.
    bool has(const std::string& name, bool confirmed) const {
        const Entry* const entry = find(name);
        return entry != nullptr && (!confirmed || entry->isConfirmed());
    }

    /// Returns all entries, in the order of the names.
    std::vector<Entry*> entries() const {
        std::vector<Entry*> all;
        all.reserve(byName.size());
        for (const auto& nameAndEntry : byName) {
            all.push_back(nameAndEntry.second);
        }
        return all;
    }

    /// Inserts the definitions one by one, in order, and appends their entries to `batch`. Stops at the first that is
    /// refused. The definitions before it stay inserted, and reach the host at the next re-registration. The same
    /// holds when memory runs out.
    /// @param reportInvalidType  prints the line for a definition without a type.
    /// @return true when all were inserted.
    template <typename Definition>
    bool insert(const Definition* definitions, unsigned int count, bool silent,
                void (*reportInvalidType)(const std::string&), std::vector<Entry*>& batch) {
        const DuplicateNames duplicates(count,
                                        [definitions](std::size_t i) { return std::string_view(definitions[i].name); });
        batch.reserve(count);
        for (unsigned int i = 0; i < count; ++i) {
            const Definition& definition = definitions[i];
            const auto place = placeFor(definition.name);
            void (*report)(const std::string&) = nullptr;
            if (definition.type == CSClient::TYPE_UNDEFINED) {
                report = reportInvalidType;
            } else if (checks::isTooLong(definition.name)) {
                report = checks::reportTooLong;
            } else if (place != byName.end() && place->first == definition.name) {
                report = checks::reportAlreadyRegistered;
            } else if (duplicates.occursAgain(i)) {
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
            byName.emplace_hint(place, entry->name, entry.get());
            static_cast<void>(entry.release());  // The table owns the entry now.
        }
        return true;
    }

    Unregistration findAll(const std::vector<std::string>& names) {
        const DuplicateNames duplicates(names.size(), [&names](std::size_t i) { return std::string_view(names[i]); });
        Unregistration found;
        found.batch.reserve(names.size());
        found.places.reserve(names.size());
        auto hint = byName.begin();
        for (std::size_t i = 0; i < names.size(); ++i) {
            const auto place = findNear(hint, names[i]);
            if (place != byName.end()) {
                found.batch.push_back(place->second);
                if (!duplicates.occursAgain(i)) {
                    found.places.push_back(place);
                }
                hint = std::next(place);
            }
        }
        return found;
    }

    /// Removes and destroys the entries, and calls `eraseId(id)` for each. Allocates nothing.
    template <typename EraseId>
    void erase(const Unregistration& found, const EraseId& eraseId) {
        const CSLockGuard lock(namesMutex);
        for (const auto place : found.places) {
            const std::unique_ptr<Entry> entry(place->second);  // The key refers to it.
            eraseId(entry->serverId);
            byName.erase(place);
        }
    }

    /// Moves all entries to `other`, which must be empty.
    void moveTo(EntryTable& other) {
        const CSLockGuard lock(namesMutex);
        other.byName.swap(byName);
    }

    /// Moves entries from `other` whose names are not in this table. Allocates nothing.
    void merge(EntryTable& other) {
        const CSLockGuard lock(namesMutex);
        byName.merge(other.byName);
    }

    /// Destroys all entries.
    void clear() {
        const CSLockGuard lock(namesMutex);
        for (const auto& nameAndEntry : byName) {
            delete nameAndEntry.second;
        }
        // The keys refer to the destroyed entries, but clearing the table does not read them.
        byName.clear();
    }

    /// Returns the names, in ascending order. Any thread. It does not wait for a request that is being written under
    /// `parameterMutex`.
    std::vector<std::string> names() const {
        const CSLockGuard lock(namesMutex);
        std::vector<std::string> all;
        all.reserve(byName.size());
        for (const auto& nameAndEntry : byName) {
            all.emplace_back(nameAndEntry.first);
        }
        return all;
    }

  private:
    friend class PartAccess;

    /// Returns the first entry whose name is not less than `name`: the position of `name`, or where to insert it.
    /// Constant time for names in ascending order.
    Place placeFor(const std::string& name) {
        const bool isAfterAll = byName.empty() || std::prev(byName.end())->first < name;
        return isAfterAll ? byName.end() : byName.lower_bound(name);
    }

    /// Guards the set of keys, together with `parameterMutex`. A change takes both locks. A reader of names takes
    /// this one.
    mutable CSMutex namesMutex;
    Map byName;
};

}  // namespace com_tesk
