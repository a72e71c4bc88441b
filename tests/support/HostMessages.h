#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/Hex.h"

namespace com_tesk::test {

// The bodies of a host's messages, as hex texts. Bytes that the client does not read are not zero, so that a client that
// reads them fails a test.

inline std::string bodyWithRecords(std::string body, const std::vector<std::string>& records) {
    for (const std::string& record : records) {
        body += ' ' + record;
    }
    return body;
}

/// @param announced  the count word. It may differ from the number of records.
inline std::string inputConfirmation(unsigned int announced, const std::vector<std::string>& records) {
    return bodyWithRecords("04 02 A1 A2 A3 A4 A5 A6 A7 A8 01 01 B1 B2 B3 B4 " + hexWord(announced), records);
}

inline std::string confirmedInput(unsigned int id, unsigned int flag, const std::string& valueHex,
                                  const std::string& name) {
    return hexWord(id) + " C1 C2 C3 C4 C5 C6 C7 C8 " + hexWord(flag) + ' ' + valueHex + ' ' + hexField(name);
}

inline std::string outputConfirmation(unsigned int announced, const std::vector<std::string>& records) {
    return bodyWithRecords("04 02 A1 A2 A3 A4 A5 A6 A7 A8 01 02 B1 B2 B3 B4 " + hexWord(announced), records);
}

inline std::string confirmedOutput(unsigned int id, const std::string& name) {
    return hexWord(id) + " D1 D2 D3 D4 D5 D6 D7 D8 D9 DA DB DC " + hexField(name);
}

/// The confirmations of inputs with the float value 0, and of outputs: `{{7, "A"}, {9, "B"}}`.
using IdAndName = std::pair<unsigned int, std::string>;
inline std::string inputsConfirmed(const std::vector<IdAndName>& inputs) {
    std::vector<std::string> records;
    for (const auto& [id, name] : inputs) {
        records.push_back(confirmedInput(id, 0, hexWord(0), name));
    }
    return inputConfirmation(static_cast<unsigned int>(inputs.size()), records);
}

inline std::string outputsConfirmed(const std::vector<IdAndName>& outputs) {
    std::vector<std::string> records;
    for (const auto& [id, name] : outputs) {
        records.push_back(confirmedOutput(id, name));
    }
    return outputConfirmation(static_cast<unsigned int>(outputs.size()), records);
}

inline std::string update(unsigned int announced, const std::vector<std::string>& records) {
    return bodyWithRecords("04 02 A1 A2 A3 A4 A5 A6 A7 A8 00 03 B1 B2 B3 B4 B5 B6 B7 B8 " + hexWord(announced),
                           records);
}

inline std::string updated(unsigned int id, unsigned int flag, const std::string& valueHex) {
    return hexWord(id) + ' ' + hexWord(flag) + ' ' + valueHex;
}

/// @param simulatorWord  the id in the upper half.
inline std::string versionResponse(unsigned int simulatorWord, const std::string& text,
                                   unsigned int protocolVersion = 9, unsigned int status = 1) {
    return "04 02 A1 A2 A3 A4 A5 A6 A7 A8 01 06 " + hexWord(simulatorWord) + ' ' + hexField(text, 128) + ' ' +
           hexWord(protocolVersion) + ' ' + hexWord(status);
}

/// The first `length` bytes of a body.
inline std::string firstBytes(const std::string& bodyHex, std::size_t length) {
    Bytes bytes = hex(bodyHex);
    bytes.resize(length);
    return hexText(bytes);
}

}  // namespace com_tesk::test
