#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>
#include <vector>

#include "engine/NameBytes.h"

namespace com_tesk {

/// Finds entries of an ordered table in constant time. The table owns the entries. A successful search of the table
/// adds the entry here, and the index is cleared when an entry is erased. A miss is not conclusive: search the table.
/// @tparam Key  has `Type` and static functions `of(entry)`, `hashOf(key)`, `isSame(key, key)`.
template <typename Entry, typename Key>
class LookupIndex {
  public:
    /// Returns the entry, or null when it is not in the index.
    Entry* find(typename Key::Type key) const {
        if (slots.empty()) {
            return nullptr;
        }
        std::size_t slot = slotOf(key);
        for (unsigned int probe = 0; probe < kMaxProbes && slots[slot] != nullptr; ++probe) {
            if (Key::isSame(Key::of(*slots[slot]), key)) {
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

    /// Maximum probe count. It limits the cost of colliding keys. Entries beyond it are not indexed.
    static constexpr unsigned int kMaxProbes = 128;

    std::size_t slotOf(typename Key::Type key) const { return Key::hashOf(key) & (slots.size() - 1); }
    std::size_t next(std::size_t slot) const { return (slot + 1) & (slots.size() - 1); }

    void insert(Entry& entry) {
        std::size_t slot = slotOf(Key::of(entry));
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

/// The key of entries with a name.
struct NameKey {
    using Type = std::string_view;
    template <typename Entry>
    static Type of(const Entry& entry) {
        return entry.name;
    }
    static std::size_t hashOf(Type name) { return names::hashOf(name); }
    static bool isSame(Type one, Type other) { return names::isSame(one, other); }
};

/// The key of elements of a table by id.
struct IdKey {
    using Type = std::uint32_t;
    template <typename Element>
    static Type of(const Element& element) {
        return element.first;
    }
    static std::size_t hashOf(Type id) { return static_cast<std::size_t>(names::spread(id)); }
    static bool isSame(Type one, Type other) { return one == other; }
};

}  // namespace com_tesk
