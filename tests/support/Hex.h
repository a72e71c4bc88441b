#pragma once

#include <string>
#include <vector>

namespace com_tesk::test {

using Bytes = std::vector<unsigned char>;

/// Returns the bytes of a text such as "04 02 7F ff". Blanks and newlines are ignored. Any other text throws.
Bytes hex(const std::string& text);

/// Returns the text of bytes: two upper-case digits each, separated by blanks. Tests compare texts, because a failure
/// then shows the difference.
std::string hexText(const Bytes& bytes);

/// The same for any container of `char`, such as a RawMessage.
std::string hexText(const std::vector<char>& bytes);

/// Returns the hex text of a zero-padded field that holds `text`.
std::string hexField(const std::string& text, std::size_t length = 32);

/// Returns the hex text of a data frame with this body: lengths, kind 0, sub-kind 0, sixteen times FF, body. It does
/// not use the library, so tests write the bytes of a host with it.
std::string hexFrame(const std::string& bodyHex);

/// Returns the hex text of a big-endian 32-bit word.
std::string hexWord(unsigned int value);

}  // namespace com_tesk::test
