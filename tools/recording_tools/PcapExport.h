#pragma once

#include "tools/recording_tools/CsvExport.h"

namespace com_tesk::recording {

/// Writes a capture for Wireshark, with the TCP connections between the clients and the host. A connection that was recorded
/// with its bytes has these in the pieces that arrived, all others have frames made of the messages. A connection that was
/// there before the recording begins with a handshake and with confirmations. The memory depends on the number of
/// connections and names only.
void writePcap(Reading& reading, const Write& write);

}  // namespace com_tesk::recording
