#pragma once

#include <string>
#include <vector>

namespace com_tesk::test {

// The bodies of a host's messages, as hex texts. Every byte that the client does not read is filled with something
// other than zero, so that a client that does read it is found out.

/// `announced` is the count word: it need not be the number of records.
std::string inputConfirmation(unsigned int announced, const std::vector<std::string>& records);
std::string confirmedInput(unsigned int id, unsigned int flag, const std::string& valueHex, const std::string& name);

std::string outputConfirmation(unsigned int announced, const std::vector<std::string>& records);
std::string confirmedOutput(unsigned int id, const std::string& name);

std::string update(unsigned int announced, const std::vector<std::string>& records);
std::string updated(unsigned int id, unsigned int flag, const std::string& valueHex);

/// @param simulatorWord  the id in the upper half.
std::string versionResponse(unsigned int simulatorWord, const std::string& text, unsigned int protocolVersion = 9,
                            unsigned int status = 1);

/// The first `length` bytes of a body.
std::string firstBytes(const std::string& bodyHex, std::size_t length);

}  // namespace com_tesk::test
