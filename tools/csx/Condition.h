#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "session/Number.h"

namespace com_tesk::csx {

/// A condition on a value, such as `altitude>=100`.
struct Condition {
    enum class Operator { EQUAL, UNEQUAL, LESS, LESS_OR_EQUAL, GREATER, GREATER_OR_EQUAL, NEAR };

    std::string name;
    Operator comparison = Operator::EQUAL;
    double bound = 0;
    double tolerance = 0;  ///< Of `NEAR`.
    std::string text;      ///< As the user wrote it.

    /// True when the condition holds for the value. A float is compared with the float that is nearest to the bound, so
    /// that `==0.1` holds for the value 0.1. Near a bound, an error of one rounding counts as near enough.
    bool holdsFor(const Number& value) const;
};

/// Reads a condition: a name, one of `== != < <= > >=`, and a number; or a name, `~`, a number, `±` or `+-`, and the
/// tolerance. The name ends at the first of these characters.
/// @param flaw  receives the reason when the text is no condition.
std::optional<Condition> conditionOf(std::string_view text, std::string& flaw);

}  // namespace com_tesk::csx
