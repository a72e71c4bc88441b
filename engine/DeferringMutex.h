#pragma once

#include <cstdint>
#include <utility>

#include "comms/CSMutex.h"
#include "comms/ThreadSafety.h"

namespace com_tesk {

/// The number that denotes no connection.
constexpr std::uint32_t kNoConnection = 0;

/// A mutex under which frames are written. When a write fails, its holder cannot close the connection at once:
/// closing takes another lock, makes callbacks and sleeps. The holder stores the connection here and closes it after
/// unlocking.
class CSCLIENT_CAPABILITY("mutex") DeferringMutex : public CSMutex {
  public:
    /// Stores the connection to close after unlocking.
    void defer(std::uint32_t connection) CSCLIENT_REQUIRES(this) { deferredConnection = connection; }

    /// True when a connection is stored.
    bool hasDeferred() const CSCLIENT_REQUIRES(this) { return deferredConnection != kNoConnection; }

    /// Returns and clears the stored connection, or returns `kNoConnection`. The caller must close it.
    std::uint32_t takeDeferred() CSCLIENT_REQUIRES(this) { return std::exchange(deferredConnection, kNoConnection); }

  private:
    std::uint32_t deferredConnection CSCLIENT_GUARDED_BY(this) = kNoConnection;
};

}  // namespace com_tesk
