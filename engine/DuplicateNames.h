#pragma once

#include <cstddef>
#include <string_view>
#include <unordered_set>
#include <vector>

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
        std::unordered_set<std::string_view> laterNames(count);
        for (std::size_t i = count; i-- > 0;) {
            isRepeated[i] = laterNames.insert(nameAt(i)).second ? 0 : 1;
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
