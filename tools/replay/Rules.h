#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/replay/Options.h"
#include "tools/scenario/Flaws.h"

namespace com_tesk::replay {

/// How an output is compared with its recording.
enum class Mode : std::uint8_t {
    STEP,      ///< The values over time, with the window.
    FINAL,     ///< The value at the end.
    SEQUENCE,  ///< The values in their order, at any time.
    IGNORE,    ///< Not at all.
};

struct Rule {
    Mode mode = Mode::STEP;
    double tolerance = 0;
    Time window{};
};

/// The rules for all outputs.
struct Rules {
    Rule fallback;                      ///< For outputs without a rule of their own.
    std::map<std::string, Rule> named;  ///< By name of the output.

    const Rule& of(const std::string& name) const;
};

/// Reads the text of a file of rules.
/// @param fallback  what a rule does not say.
/// @param flaws     gets everything that is wrong. The result is of use only without any.
Rules readRules(const std::string& text, const Rule& fallback, std::vector<scenario::Flaw>& flaws);

/// Reads a file. A file that cannot be read is a flaw.
Rules readRulesFile(const std::string& path, const Rule& fallback, std::vector<scenario::Flaw>& flaws);

}  // namespace com_tesk::replay
