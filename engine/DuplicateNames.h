#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "engine/NameBytes.h"

namespace com_tesk {

/// Which names of a call occur again later in it.
class DuplicateNames {
  public:
    /// @param nameAt  gives the name at an index.
    template <typename NameAt>
    DuplicateNames(std::size_t count, const NameAt& nameAt) {
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

    /// Whether the name at `index` occurs again after it.
    bool occursAgain(std::size_t index) const { return !isRepeated.empty() && isRepeated[index] != 0; }

  private:
    /// Whether each name is greater than the one before, so that no name can occur twice.
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
