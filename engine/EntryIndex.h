#pragma once

#include <cstddef>
#include <functional>
#include <new>
#include <string_view>
#include <vector>

namespace com_tesk {

/// Finds entries by name in constant time, beside the ordered table that owns them. It is filled with what has been looked
/// up there and emptied whenever an entry is destroyed; what it does not know is not thereby unknown.
template <typename Entry>
class EntryIndex {
  public:
    /// The entry, or null when the index does not know it.
    Entry* find(std::string_view name) const {
        if (slots.empty()) {
            return nullptr;
        }
        for (std::size_t slot = slotOf(name);; slot = (slot + 1) & (slots.size() - 1)) {
            Entry* const entry = slots[slot];
            if (entry == nullptr || entry->name == name) {
                return entry;
            }
        }
    }

    /// Adds an entry that is not there yet. Without memory it stays unknown.
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

    std::size_t slotOf(std::string_view name) const { return std::hash<std::string_view>()(name) & (slots.size() - 1); }

    void insert(Entry& entry) {
        std::size_t slot = slotOf(entry.name);
        while (slots[slot] != nullptr) {
            slot = (slot + 1) & (slots.size() - 1);
        }
        slots[slot] = &entry;
        ++used;
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

    /// Linear probing; a power of two of them, at most three quarters used.
    std::vector<Entry*> slots;
    std::size_t used = 0;
};

}  // namespace com_tesk
