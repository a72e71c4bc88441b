#pragma once

#include <string>
#include <vector>

namespace com_tesk {
namespace test {

using Bytes = std::vector<unsigned char>;

/// The bytes of a text such as "04 02 7F ff"; blanks and newlines are free. Anything else throws.
Bytes hex(const std::string& text);

/// The text of bytes: two upper-case digits each, with blanks between. Compare texts, and a failure shows what differs.
std::string hexText(const Bytes& bytes);

/// As above, of any container of `char`, such as a RawMessage.
std::string hexText(const std::vector<char>& bytes);

/// The hex text of a zero-padded field that holds `text`.
std::string hexField(const std::string& text, std::size_t length = 32);

/// The hex text of a data frame around a body: lengths, kind 0, sub-kind 0, sixteen times FF, body.
/// Independent of the library: this is how tests write down what a host sends.
std::string hexFrame(const std::string& bodyHex);

/// The hex text of a big-endian 32-bit word.
std::string hexWord(unsigned int value);

}  // namespace test
}  // namespace com_tesk
