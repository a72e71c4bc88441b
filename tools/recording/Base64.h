#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace com_tesk::recording {

/// Appends the bytes in the alphabet of base64, with `=` at the end where needed.
void appendBase64(std::string& text, std::string_view bytes);

/// Returns the bytes of a text in base64; nothing when it is not what appendBase64 writes.
std::optional<std::string> bytesOfBase64(std::string_view text);

}  // namespace com_tesk::recording
