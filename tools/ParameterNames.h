#pragma once

#include <string>
#include <string_view>

/// Names of parameters in command lines, files and messages.
namespace com_tesk::tools {

/// Returns the reason why a text is no name of a parameter; an empty text when it is one.
std::string nameError(std::string_view name);

/// Returns the name for people: in double quotes when it is empty or contains a blank, a quote, a backslash or a byte
/// that is not printable. All of these but blanks are then \xNN.
std::string shownName(std::string_view name);

/// Returns the text with every byte that is not printable as \xNN.
std::string printable(std::string_view text);

}  // namespace com_tesk::tools
