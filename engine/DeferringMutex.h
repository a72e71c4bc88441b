#pragma once

#include <cstdint>
#include <utility>

#include "comms/CSMutex.h"
#include "comms/ThreadSafety.h"

namespace com_tesk {

/// Stands for no connection where one is expected by number.
constexpr std::uint32_t kNoConnection = 0;

/// A mutex under which frames are written. When a write fails, its holder cannot close the connection at once: closing
/// takes another lock, makes callbacks and sleeps. The holder notes the connection here and closes it after unlocking.
class CSCLIENT_CAPABILITY("mutex") DeferringMutex : public CSMutex {
  public:
    /// Notes the connection to close after unlocking.
    void defer(std::uint32_t connection) CSCLIENT_REQUIRES(this) { deferredConnection = connection; }

    /// Whether a connection is noted.
    bool hasDeferred() const CSCLIENT_REQUIRES(this) { return deferredConnection != kNoConnection; }

    /// @return the connection noted, which is the caller's to close from now on, or `kNoConnection`.
    std::uint32_t takeDeferred() CSCLIENT_REQUIRES(this) { return std::exchange(deferredConnection, kNoConnection); }

  private:
    std::uint32_t deferredConnection CSCLIENT_GUARDED_BY(this) = kNoConnection;
};

}  // namespace com_tesk
