#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace com_tesk::scenario {

/// What is wrong in a file, and where.
struct Flaw {
    unsigned line = 0;  ///< From 1.
    unsigned column = 0;
    std::string text;
};

/// Returns the word that is most similar to `word`, when one is similar enough to be meant; empty otherwise.
std::string nearestWord(std::string_view word, const std::vector<std::string_view>& words);

/// Returns `; did you mean "..."?` with the nearest word, or a list of all words.
std::string suggestion(std::string_view word, const std::vector<std::string_view>& words);

}  // namespace com_tesk::scenario
