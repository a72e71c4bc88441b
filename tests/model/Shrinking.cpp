#include "tests/model/Shrinking.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace com_tesk::test {

namespace {

using Pieces = std::vector<std::string>;

Pieces split(const std::string& text, char separator) {
    Pieces pieces;
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, separator);) {
        pieces.push_back(piece);
    }
    return pieces;
}

std::string joined(const Pieces& pieces, char separator) {
    std::string text;
    for (const std::string& piece : pieces) {
        text += (text.empty() ? "" : std::string(1, separator)) + piece;
    }
    return text;
}

/// Removes pieces but the first, as long as `fails`. Backwards, because what comes last depends on what comes first.
template <typename Fails>
bool shrink(Pieces& pieces, const Fails& fails) {
    const std::size_t before = pieces.size();
    for (std::size_t size = pieces.size() / 2; size > 0; size /= 2) {
        for (std::size_t end = pieces.size(); end > 1;) {
            const std::size_t begin = std::max<std::size_t>(end > size ? end - size : 0, 1);
            Pieces fewer(pieces.begin(), pieces.begin() + static_cast<std::ptrdiff_t>(begin));
            fewer.insert(fewer.end(), pieces.begin() + static_cast<std::ptrdiff_t>(end), pieces.end());
            if (fails(fewer)) {
                pieces = fewer;
            }
            end = begin;
        }
    }
    return pieces.size() < before;
}

}  // namespace

StepSequence shrunk(const StepSequence& sequence, const std::function<bool(const StepSequence&)>& fails,
                    std::chrono::milliseconds time) {
    const auto deadline = std::chrono::steady_clock::now() + time;
    const auto linesFail = [&fails, deadline](const Pieces& lines) {
        try {
            return std::chrono::steady_clock::now() < deadline && fails(sequenceFrom(joined(lines, '\n')));
        } catch (const std::logic_error&) {  // These words are no steps.
            return false;
        }
    };
    Pieces lines = split(textOf(sequence), '\n');
    for (bool helped = true; helped;) {
        helped = shrink(lines, linesFail);
        for (std::string& line : lines) {
            Pieces words = split(line, ' ');
            helped = shrink(words,
                            [&](const Pieces& fewer) {
                                const std::string before = line;
                                line = joined(fewer, ' ');
                                const bool isFailing = linesFail(lines);
                                line = isFailing ? line : before;
                                return isFailing;
                            }) ||
                     helped;
        }
    }
    return sequenceFrom(joined(lines, '\n'));
}

}  // namespace com_tesk::test
