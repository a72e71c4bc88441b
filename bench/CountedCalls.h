#pragma once

namespace com_tesk::bench {

/// The system calls of this process so far that read or wait for bytes: read, recv, poll.
unsigned long countedReads();

/// Those that write: write, send.
unsigned long countedWrites();

}  // namespace com_tesk::bench
