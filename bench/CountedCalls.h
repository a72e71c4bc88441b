#pragma once

namespace com_tesk::bench {

/// Returns how many system calls of this thread have read or waited for bytes: read, readv, recv, recvmsg, poll.
unsigned long countedReads();

/// Returns how many system calls of this thread have written: write, writev, send, sendmsg.
unsigned long countedWrites();

}  // namespace com_tesk::bench
