#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "engine/CSClientProtocol.h"
#include "session/ValueConversion.h"

namespace com_tesk::session {

/// The parameters of one direction, in the order of their first declaration. A slot is never removed: handles refer to
/// it. A withdrawn parameter that is declared again gets its slot back. Not synchronised.
template <typename Slot>
class SlotTable {
  public:
    /// Returns the slot of a declaration. `make` creates a new one.
    /// @throw std::invalid_argument  the declaration is refused, and nothing has changed.
    template <typename Make>
    Slot& declare(std::string_view name, ValueType type, Delivery delivery, const Make& make) {
        checkName(name);
        const auto found = byName.find(name);
        if (found != byName.end() && found->second->isDeclared) {
            Slot& slot = *found->second;
            if (slot.type != type || slot.delivery() != delivery) {
                throw std::invalid_argument("csclient: \"" + std::string(name) +
                                            "\" is already declared with another type or delivery");
            }
            return slot;
        }
        if (found != byName.end()) {
            for (const auto& slot : slots) {
                if (slot->name() == name && slot->type == type && slot->delivery() == delivery) {
                    found->second = slot.get();
                    slot->isDeclared = true;
                    addChanged(*slot);
                    return *slot;
                }
            }
        }
        // Each step can throw. Before the last one nothing has changed.
        std::unique_ptr<Slot> made = make();
        Slot& slot = *made;
        reserveFor(slots.size() + 1);
        byName[slot.name()] = &slot;
        slots.push_back(std::move(made));
        addChanged(slot);
        return *slots.back();
    }

    /// Adds a slot whose declaration differs from what the host knows. Does not allocate.
    void addChanged(Slot& slot) {
        if (!slot.isChanged) {
            slot.isChanged = true;
            changed.push_back(&slot);
        }
    }

    bool hasChanged() const { return !changed.empty(); }

    /// Changed slots, by what the host has to be told.
    struct Changes {
        std::vector<Slot*> withdrawn;  ///< Confirmed, and no longer declared.
        std::vector<Slot*> added;      ///< Declared, and not registered.
    };
    Changes changes() const {
        Changes result;
        for (Slot* const slot : changed) {
            if (slot->isDeclared && !slot->isRegistered) {
                result.added.push_back(slot);
            } else if (!slot->isDeclared && slot->isConfirmed()) {
                result.withdrawn.push_back(slot);
            }
        }
        return result;
    }

    /// Removes the changed slots about which the host has to be told nothing. A withdrawn one that has no id yet is
    /// added again when it is confirmed.
    void removeSettled() {
        const auto kept = std::remove_if(changed.begin(), changed.end(), [](Slot* slot) {
            slot->isChanged = slot->isDeclared ? !slot->isRegistered : slot->isConfirmed();
            return !slot->isChanged;
        });
        changed.erase(kept, changed.end());
    }

    /// Returns the declared slot with this name, or null.
    Slot* find(std::string_view name) const {
        const auto found = byName.find(name);
        return found != byName.end() ? found->second : nullptr;
    }

    const std::vector<std::unique_ptr<Slot>>& all() const { return slots; }

  private:
    static void checkName(std::string_view name) {
        if (name.empty() || name.size() >= CSClientProtocol::kMaxParameterNameLength ||
            name.find('\0') != std::string_view::npos) {
            std::string shown;
            for (const char byte : name) {
                byte == '\0' ? shown.append("\\0") : shown.append(1, byte);  // A text ends at a zero byte.
            }
            throw std::invalid_argument("csclient: the name \"" + shown +
                                        "\" is not valid: a name has 1 to 31 bytes, none of them zero");
        }
    }

    void reserveFor(std::size_t count) {
        if (count > slots.capacity() || count > changed.capacity()) {
            slots.reserve(2 * count);
            changed.reserve(2 * count);
        }
    }

    std::vector<std::unique_ptr<Slot>> slots;
    /// The names are those of the slots.
    std::unordered_map<std::string_view, Slot*> byName;
    /// Has the capacity for all slots.
    std::vector<Slot*> changed;
};

}  // namespace com_tesk::session
