#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "comms/CSLockGuard.h"
#include "comms/CSMutex.h"
#include "comms/ThreadSafety.h"

namespace com_tesk {

/// The host's version text and protocol version. Written by the worker, read by any thread.
class HostVersion {
  public:
    /// Returns "UNKNOWN" until the host has reported its version.
    std::string text() const CSCLIENT_EXCLUDES(versionMutex) {
        const CSLockGuard lock(versionMutex);
        return serverVersion;
    }

    void storeText(std::string version) CSCLIENT_EXCLUDES(versionMutex) {
        const CSLockGuard lock(versionMutex);
        serverVersion = std::move(version);
    }

    /// Returns 0 until the host has reported its version.
    std::uint32_t protocol() const { return protocolVersion; }

    void storeProtocol(std::uint32_t version) { protocolVersion = version; }

  private:
    friend class PartAccess;

    mutable CSMutex versionMutex;
    std::string serverVersion CSCLIENT_GUARDED_BY(versionMutex) = "UNKNOWN";
    std::atomic<std::uint32_t> protocolVersion{0};
};

}  // namespace com_tesk
