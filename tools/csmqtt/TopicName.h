#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Names of values as one level of a topic.
namespace com_tesk::mqtt {

/// Returns the name percent-encoded, so that it is one level of a topic, valid UTF-8, and one word in a shell: `a%2Fb`.
/// Encoded, each byte as % and two upper-case digits, are
/// - `/ + # % $`, which topics or this encoding use,
/// - blanks, control characters, also those above U+007F, and Unicode's noncharacters, which brokers may refuse,
/// - bytes that are no valid UTF-8.
/// Everything else stays, such as letters with accents.
std::string encodedName(std::string_view name);

/// Returns the name for a level of a topic. Any byte may be encoded, also with lower-case digits.
/// @return nothing when a % is not followed by two hexadecimal digits.
std::optional<std::string> decodedName(std::string_view level);

/// Returns why the text cannot be the first levels of a topic; an empty text when it can. It has to be valid UTF-8
/// without wildcards and control characters, 1 to 1000 bytes long, without a slash at either end or two in a row, and
/// must not begin with `$`, which is the broker's.
std::string baseError(std::string_view base);

/// Returns the length of the character that begins the text: 1 to 4, or 0 when its bytes are no valid UTF-8, a control
/// character or a noncharacter.
std::size_t characterSize(std::string_view text);

/// True when the text is valid UTF-8 without control characters and noncharacters, as MQTT wants its texts.
bool isPlainText(std::string_view text);

}  // namespace com_tesk::mqtt
