#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

/// Bytes as the tests write them down. Nothing here comes from the code under test.

namespace com_tesk::host_test {

using Bytes = std::vector<std::uint8_t>;

/// The bytes of a text such as "04 02 7F FF 0006"; blanks are skipped.
Bytes hex(const std::string& text);

/// "04 02 7F FF", for readable failures.
std::string text(const Bytes& bytes);

Bytes joined(std::initializer_list<Bytes> parts);
Bytes zeros(std::size_t count);

/// 32 bytes: the name, then zeros.
Bytes nameField(const std::string& name);

/// A data frame around a body: 32 bytes of header, then the body.
Bytes frame(const Bytes& body);

/// A whole request: the frame header, a sub-header with the right length and this code, and what
/// follows it, from the simulator word on.
Bytes request(std::uint8_t code, const Bytes& rest);

// Requests of simulator id 5 that most tests need.
Bytes versionRequest();
Bytes subscribeFloat(const std::string& name);
Bytes subscribeInteger(const std::string& name);
Bytes registerFloat(const std::string& name);
Bytes registerInteger(const std::string& name);
/// One record; `idFlagValue` is its three words in hex.
Bytes publish(const std::string& idFlagValue);
Bytes unsubscribe(const std::string& id);
Bytes unregister(const std::string& id);

/// The update that the host sends to a client of simulator id 5, one record.
Bytes update(const std::string& idFlagValue);

}  // namespace com_tesk::host_test
