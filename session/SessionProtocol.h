#pragma once

#include "simulator/SimulatorProtocol.h"

namespace com_tesk::session {

/// The protocol of a session. The engine's tables stay empty: the session has its own, and an id belongs to one
/// connection. The observer gets what the host sends.
class SessionProtocol : public SimulatorProtocol {
  public:
    /// Worker thread. `connectionBegan` and `connectionEnded` hold the engine's `connectionMutex`.
    class Observer {
      public:
        /// Frames can be sent from now on.
        virtual void connectionBegan() = 0;
        /// The connection or the attempt has ended. The engine can be opened again once its state says so.
        virtual void connectionEnded() noexcept = 0;
        virtual void messageReceived(const RawMessage& message) = 0;

      protected:
        ~Observer() = default;
    };

    /// @param protocolObserver  outlives this object.
    SessionProtocol(Observer& protocolObserver, unsigned int simulatorId);

    void handleReceivedMessage(const RawMessage& message) override;
    void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState) override;

    /// Waits until the engine can be opened again: a few instructions of the worker after `connectionEnded`.
    void waitForWorker() const;

  private:
    Observer& observer;
};

}  // namespace com_tesk::session
