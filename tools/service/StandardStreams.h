#pragma once

namespace com_tesk::service {

/// Opens `/dev/null` for each of the descriptors 0, 1 and 2 that is closed. Otherwise the next socket would get its
/// number, and lines of the log would be sent to its peer. Call it first, before there are threads.
void openClosedStreams();

}  // namespace com_tesk::service
