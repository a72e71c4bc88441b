#pragma once

#include <string>
#include <utility>
#include <vector>

namespace com_tesk::test {

// The bodies of a host's messages, as hex texts. Bytes that the client does not read are not zero, so that a client that
// reads them fails a test.

/// @param announced  the count word. It may differ from the number of records.
std::string inputConfirmation(unsigned int announced, const std::vector<std::string>& records);
std::string confirmedInput(unsigned int id, unsigned int flag, const std::string& valueHex, const std::string& name);

std::string outputConfirmation(unsigned int announced, const std::vector<std::string>& records);
std::string confirmedOutput(unsigned int id, const std::string& name);

/// The confirmations of inputs with the float value 0, and of outputs: `{{7, "A"}, {9, "B"}}`.
using IdAndName = std::pair<unsigned int, std::string>;
std::string inputsConfirmed(const std::vector<IdAndName>& inputs);
std::string outputsConfirmed(const std::vector<IdAndName>& outputs);

std::string update(unsigned int announced, const std::vector<std::string>& records);
std::string updated(unsigned int id, unsigned int flag, const std::string& valueHex);

/// @param simulatorWord  the id in the upper half.
std::string versionResponse(unsigned int simulatorWord, const std::string& text, unsigned int protocolVersion = 9,
                            unsigned int status = 1);

/// The first `length` bytes of a body.
std::string firstBytes(const std::string& bodyHex, std::size_t length);

}  // namespace com_tesk::test
