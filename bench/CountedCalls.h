#pragma once

namespace com_tesk::bench {

/// The system calls of this thread so far that read or wait for bytes: read, readv, recv, recvmsg, poll.
unsigned long countedReads();

/// Those that write: write, writev, send, sendmsg.
unsigned long countedWrites();

}  // namespace com_tesk::bench
