#pragma once

#include "engine/CSClientProtocol.h"

namespace com_tesk {

// A write can fail while its thread holds an engine lock, and the close that follows needs connectionMutex and sleeps.
// The close is then noted beside the lock that the thread holds (`closeAfterFailedWrite`), and the guard that releases
// that lock carries it out: or hands it on, when a thread releases parameterMutex inside a state change and still holds
// connectionMutex. Only the holder of a lock reads or writes the note beside it.
//
// The other way round, a thread that wants the connection closed cannot wait for a holder of connectionMutex who is
// stuck in a write: it notes its request (`requestClose`), and the guard that releases the lock carries that out.

/// Holds `connectionMutex` for a scope; carries out what was requested meanwhile, and what is owed, after releasing it.
class CSCLIENT_SCOPED_CAPABILITY CSClientProtocol::ConnectionLock {
  public:
    enum Adopt { ADOPT };

    explicit ConnectionLock(CSClientProtocol& lockedEngine) CSCLIENT_ACQUIRE(lockedEngine.connectionMutex);
    /// Takes over the mutex, which this thread holds already.
    ConnectionLock(CSClientProtocol& lockedEngine, Adopt adopt) CSCLIENT_REQUIRES(lockedEngine.connectionMutex);
    ConnectionLock(const ConnectionLock&) = delete;
    ConnectionLock& operator=(const ConnectionLock&) = delete;
    /// Can call callbacks and sleep a second, when a close is requested or owed.
    ~ConnectionLock() CSCLIENT_RELEASE();

  private:
    CSClientProtocol& engine;
};

/// Holds `parameterMutex` for a scope; closes what is owed after releasing it.
class CSCLIENT_SCOPED_CAPABILITY CSClientProtocol::ParameterLock {
  public:
    explicit ParameterLock(CSClientProtocol& lockedEngine) CSCLIENT_ACQUIRE(lockedEngine.parameterMutex);
    ParameterLock(const ParameterLock&) = delete;
    ParameterLock& operator=(const ParameterLock&) = delete;
    /// Can call callbacks and sleep a second, when a close is owed.
    ~ParameterLock() CSCLIENT_RELEASE();

  private:
    CSClientProtocol& engine;
};

}  // namespace com_tesk
