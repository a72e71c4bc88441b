#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "session/Number.h"

namespace com_tesk::csx {

/// A name and the value to publish.
struct Assignment {
    std::string name;
    Number value;
};

/// Reads `NAME=VALUE`. The name ends at the last `=`, because no value contains one.
/// @param flaw  receives the reason when the text is no assignment.
std::optional<Assignment> assignmentOf(std::string_view text, std::string& flaw);

}  // namespace com_tesk::csx
