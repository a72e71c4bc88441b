#include "tools/scenario/Flaws.h"

#include <algorithm>
#include <numeric>

namespace com_tesk::scenario {

namespace {

/// Returns how many characters must be inserted, deleted, replaced, or exchanged with the next one.
std::size_t distanceOf(std::string_view one, std::string_view other) {
    std::vector<std::size_t> before(other.size() + 1);
    std::vector<std::size_t> last(other.size() + 1);
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= one.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (one[i - 1] == other[j - 1] ? 0 : 1);
            row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1]) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
        before.swap(last);
        last.swap(row);
    }
    return last[other.size()];
}

}  // namespace

std::string nearestWord(std::string_view word, const std::vector<std::string_view>& words) {
    std::string_view nearest;
    std::size_t least = std::max<std::size_t>(1, word.size() / 3) + 1;
    for (const std::string_view candidate : words) {
        if (const std::size_t distance = distanceOf(word, candidate); distance < least) {
            least = distance;
            nearest = candidate;
        }
    }
    return std::string(nearest);
}

std::string suggestion(std::string_view word, const std::vector<std::string_view>& words) {
    const std::string nearest = nearestWord(word, words);
    if (!nearest.empty()) {
        return "; did you mean \"" + nearest + "\"?";
    }
    std::string list;
    for (const std::string_view candidate : words) {
        list += (list.empty() ? "; it is one of " : ", ") + std::string(candidate);
    }
    return list;
}

}  // namespace com_tesk::scenario
