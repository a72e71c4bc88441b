#pragma once

#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/CSClient.h"
#include "comms/CSLockGuard.h"
#include "engine/NameBytes.h"
#include "engine/RegistrationChecks.h"

/// What registering and unregistering have in common for inputs and outputs: the checks, and the entries' way into and
/// out of the tables. Every function here is called with `parameterMutex` held.
namespace com_tesk::registration {

/// Which names of a call occur again later in it.
class LaterOccurrences {
  public:
    /// @param nameAt  gives the name at an index.
    template <typename NameAt>
    LaterOccurrences(std::size_t count, const NameAt& nameAt) {
        if (isAscending(count, nameAt)) {
            return;
        }
        isRepeated.resize(count);
        // A hash table of the names' last indexes so far, plus one; linear probing, at most half used.
        std::size_t size = 4;
        while (size < count * 2) {
            size *= 2;
        }
        std::vector<std::uint32_t> lastIndexes(size);
        for (std::size_t i = 0; i < count; ++i) {
            const std::string_view name = nameAt(i);
            std::size_t slot = names::hashOf(name) & (size - 1);
            while (lastIndexes[slot] != 0 && !names::isSame(nameAt(lastIndexes[slot] - 1), name)) {
                slot = (slot + 1) & (size - 1);
            }
            if (lastIndexes[slot] != 0) {
                isRepeated[lastIndexes[slot] - 1] = 1;
            }
            lastIndexes[slot] = static_cast<std::uint32_t>(i + 1);
        }
    }

    /// Whether the name at `index` does.
    bool isComing(std::size_t index) const { return !isRepeated.empty() && isRepeated[index] != 0; }

  private:
    /// Whether each name comes after the one before, so that none can be there twice.
    template <typename NameAt>
    static bool isAscending(std::size_t count, const NameAt& nameAt) {
        for (std::size_t i = 1; i < count; ++i) {
            if (nameAt(i) <= nameAt(i - 1)) {
                return false;
            }
        }
        return true;
    }

    /// Empty when none is. Bytes, because the code for single bits is a kilobyte larger.
    std::vector<char> isRepeated;
};

/// The first entry whose name is not less than `name`: where `name` stands, or belongs. At once for names that come in
/// ascending order.
template <typename Entry>
auto placeOf(const std::string& name, std::map<std::string_view, Entry*>& byName) {
    const bool isBehindAll = byName.empty() || std::prev(byName.end())->first < name;
    return isBehindAll ? byName.end() : byName.lower_bound(name);
}

/// Where `name` stands, or the end. At once when it stands at `guess`: who names many mostly names them in order.
template <typename Entry>
auto findNear(typename std::map<std::string_view, Entry*>::iterator guess, std::string_view name,
              std::map<std::string_view, Entry*>& byName) {
    return guess != byName.end() && names::isSame(guess->first, name) ? guess : byName.find(name);
}

/// Enters the definitions one by one, in order, and appends their entries to `batch`. Stops at the first that is
/// refused and leaves those before it entered, deliberately: they reach the host at the next re-registration. The same
/// goes for a lack of memory.
/// @param reportInvalidType  the line for a definition without a type.
/// @return whether all were entered.
template <typename Definition, typename Entry>
bool enter(const Definition* definitions, unsigned int count, bool silent,
           void (*reportInvalidType)(const std::string&), std::map<std::string_view, Entry*>& byName,
           CSMutex& namesMutex, std::vector<Entry*>& batch) {
    const LaterOccurrences laterOccurrences(
        count, [definitions](std::size_t i) { return std::string_view(definitions[i].name); });
    batch.reserve(count);
    for (unsigned int i = 0; i < count; ++i) {
        const Definition& definition = definitions[i];
        const auto place = placeOf(definition.name, byName);
        void (*report)(const std::string&) = nullptr;
        if (definition.type == CSClient::TYPE_UNDEFINED) {
            report = reportInvalidType;
        } else if (checks::isTooLong(definition.name)) {
            report = checks::reportTooLong;
        } else if (place != byName.end() && place->first == definition.name) {
            report = checks::reportAlreadyRegistered;
        } else if (laterOccurrences.isComing(i)) {
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
        static_cast<void>(entry.release());  // The table owns it now.
    }
    return true;
}

/// What a call unregisters.
template <typename Entry>
struct Unregistration {
    /// The entries of the names that are known, in the order of the call; one named twice is there twice.
    std::vector<Entry*> batch;
    /// Where each of them stands, once.
    std::vector<typename std::map<std::string_view, Entry*>::iterator> places;
};

template <typename Entry>
Unregistration<Entry> find(const std::vector<std::string>& names, std::map<std::string_view, Entry*>& byName) {
    const LaterOccurrences laterOccurrences(names.size(),
                                            [&names](std::size_t i) { return std::string_view(names[i]); });
    Unregistration<Entry> found;
    found.batch.reserve(names.size());
    found.places.reserve(names.size());
    auto guess = byName.begin();
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto place = findNear(guess, names[i], byName);
        if (place != byName.end()) {
            found.batch.push_back(place->second);
            if (!laterOccurrences.isComing(i)) {
                found.places.push_back(place);
            }
            guess = std::next(place);
        }
    }
    return found;
}

/// Whether an unregistration request that gave `result` lets the entries go. No sender gives 4, but it counts as
/// success.
constexpr bool isUnregistered(int result) {
    return (result & ~4) == 0;
}

/// Removes and destroys the entries. Allocates nothing.
template <typename Entry, typename ById>
void forget(const Unregistration<Entry>& found, std::map<std::string_view, Entry*>& byName, ById& byId,
            CSMutex& namesMutex) {
    const CSLockGuard lock(namesMutex);
    auto guess = byId.begin();
    for (const auto place : found.places) {
        const std::unique_ptr<Entry> entry(place->second);  // It holds the key.
        const auto id = guess != byId.end() && guess->first == entry->serverId ? guess : byId.find(entry->serverId);
        if (id != byId.end()) {
            guess = byId.erase(id);
        }
        byName.erase(place);
    }
}

/// Destroys all entries and empties the table.
template <typename Entry>
void destroyEntries(std::map<std::string_view, Entry*>& byName) {
    for (const auto& nameAndEntry : byName) {
        delete nameAndEntry.second;
    }
    // Their keys are gone with them, and nothing looks at one here.
    byName.clear();
}

}  // namespace com_tesk::registration
