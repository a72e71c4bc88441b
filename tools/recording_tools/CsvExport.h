#pragma once

#include <functional>
#include <string_view>

#include "tools/recording_tools/Reading.h"

namespace com_tesk::recording {

/// Receives the bytes of a result in large pieces. May throw when they cannot be written.
using Write = std::function<void(std::string_view)>;

/// Writes a line for each value: time, utc, connection, direction, name, value, type. Quoted as RFC 4180 says, with CR LF.
/// The memory does not depend on the size of the recording.
void writeCsv(Reading& reading, const Write& write);

}  // namespace com_tesk::recording
