#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/recording/Entry.h"

namespace com_tesk::recording {

/// Appends the entry as one line of JSON, with its line feed.
void appendLine(std::string& text, const Entry& entry);

/// Reads one line, without its line feed. A member that it does not know is ignored, so that later versions may add some.
/// @param flaw  receives the reason when there is no entry.
/// @return nothing for a line that is torn or invalid.
std::optional<Entry> entryOf(std::string_view line, std::string& flaw);

}  // namespace com_tesk::recording
