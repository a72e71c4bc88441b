#pragma once

#include <cstddef>
#include <new>
#include <string_view>
#include <vector>

#include "engine/NameBytes.h"

namespace com_tesk {

/// Finds entries of an ordered table by name, in constant time. The table owns the entries. A successful search of the
/// table adds the entry here, and the index is cleared when an entry is erased. A miss is not conclusive: search the
/// table.
///
/// With `std::unordered_map` instead, publishing 1,000 outputs in changing order takes 1.5 times as long.
template <typename Entry>
class NameIndex {
  public:
    /// Returns the entry, or null when it is not in the index.
    Entry* find(std::string_view name) const {
        if (slots.empty()) {
            return nullptr;
        }
        std::size_t slot = slotOf(name);
        for (unsigned int probe = 0; probe < kMaxProbes && slots[slot] != nullptr; ++probe) {
            if (names::isSame(slots[slot]->name, name)) {
                return slots[slot];
            }
            slot = next(slot);
        }
        return nullptr;
    }

    /// Adds an entry that is not in the index. Without memory it is not added.
    void add(Entry& entry) {
        if ((used + 1) * 4 > slots.size() * 3 && !grow()) {
            return;
        }
        insert(entry);
    }

    void clear() {
        slots.clear();
        slots.shrink_to_fit();
        used = 0;
    }

  private:
    static constexpr std::size_t kFirstSize = 16;

    /// Maximum probe count. It limits the cost of colliding names. Entries beyond it are not indexed.
    static constexpr unsigned int kMaxProbes = 128;

    std::size_t slotOf(std::string_view name) const { return names::hashOf(name) & (slots.size() - 1); }
    std::size_t next(std::size_t slot) const { return (slot + 1) & (slots.size() - 1); }

    void insert(Entry& entry) {
        std::size_t slot = slotOf(entry.name);
        for (unsigned int probe = 0; probe < kMaxProbes; ++probe) {
            if (slots[slot] == nullptr) {
                slots[slot] = &entry;
                ++used;
                return;
            }
            slot = next(slot);
        }
    }

    bool grow() {
        try {
            std::vector<Entry*> old(slots.empty() ? kFirstSize : slots.size() * 2);
            old.swap(slots);
            used = 0;
            for (Entry* const entry : old) {
                if (entry != nullptr) {
                    insert(*entry);
                }
            }
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }

    /// The slots: a power of two of them, at most three quarters used, with linear probing.
    std::vector<Entry*> slots;
    std::size_t used = 0;
};

}  // namespace com_tesk
