#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "engine/NameBytes.h"

namespace com_tesk {

/// Finds the names of a call that occur again later in it.
class DuplicateNames {
  public:
    /// @param nameAt  returns the name at an index.
    template <typename NameAt>
    DuplicateNames(std::size_t count, const NameAt& nameAt) {
        if (isAscending(count, nameAt)) {
            return;
        }
        isRepeated.resize(count);
        // A hash table of each name's last index so far, plus one. Linear probing, at most half full.
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

    /// True when the name at `index` occurs again after it.
    bool occursAgain(std::size_t index) const { return !isRepeated.empty() && isRepeated[index] != 0; }

  private:
    /// True when each name is greater than the previous one, so that no name can occur twice.
    template <typename NameAt>
    static bool isAscending(std::size_t count, const NameAt& nameAt) {
        for (std::size_t i = 1; i < count; ++i) {
            if (nameAt(i) <= nameAt(i - 1)) {
                return false;
            }
        }
        return true;
    }

    /// Empty when no name occurs again. Bytes, because the code for single bits is a kilobyte larger.
    std::vector<char> isRepeated;
};

}  // namespace com_tesk
