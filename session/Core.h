#pragma once

#include <memory>
#include <thread>
#include <vector>

#include "session/Dispatcher.h"
#include "session/FrameSender.h"
#include "session/Health.h"
#include "session/LinkMonitor.h"
#include "session/Log.h"
#include "session/Session.h"
#include "session/SessionProtocol.h"
#include "session/SessionTransport.h"
#include "session/Supervisor.h"
#include "session/UpdateReceiver.h"
#include "session/WakePipe.h"

namespace com_tesk::session {

/// The parts of a session, and the calls between them.
///
/// Locks, in the order in which one thread may take them:
///   1. `Supervisor::lifeMutex`: while a thread starts or stops.
///   2. The engine's `connectionMutex`.
///   3. `LinkMonitor`: while an event is reported, and while a waiting thread checks its condition.
///   4. `FrameSender`: while a frame is built and handed to the system, or the tables are changed.
///   5. `Dispatcher`, `ValueQueue`, `UpdateReceiver::hostMutex`, `Supervisor::stopMutex`: each held briefly.
/// None is held while a callback runs. The function of the log runs under any of them.
class Core final : private SessionProtocol::Observer, private SlotOwner {
  public:
    /// @throw std::invalid_argument, std::system_error  as `Session`.
    explicit Core(Session::Options sessionOptions);
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;
    ~Core();

    /// Starts the thread that runs callbacks. The thread keeps `self`, which is this object, alive.
    void startDispatching(const std::shared_ptr<Core>& self);
    /// Ends callbacks for good, and waits for one that is running on another thread.
    void endDispatching();

    /// Tells the host about changed declarations, as soon as possible.
    void declarationsChanged();

    Health health();
    std::vector<ParameterStatus> parameters();

    const Session::Options options;
    const Log log;
    const std::shared_ptr<WakePipe> wake;
    Dispatcher dispatcher;
    LinkMonitor links;

  private:
    void connectionBegan() override { supervisor.connectionBegan(); }
    void connectionEnded() noexcept override { supervisor.connectionEnded(); }
    void messageReceived(const RawMessage& message) override;
    void withdraw(OutputSlot& slot) override;
    void withdraw(InputSlot& slot) override;
    void setCallback(InputSlot& slot, std::function<void(const SampleReading&)> callback) override;
    void maxAgeChanged(InputSlot& slot) override;
    void dispatchUntilEnd();

    SessionProtocol protocol;
    SessionTransport& transport;

  public:
    FrameSender sender;

  private:
    UpdateReceiver receiver;

  public:
    Supervisor supervisor;

  private:
    Mutex dispatchThreadMutex;
    std::thread dispatchThread CSCLIENT_GUARDED_BY(dispatchThreadMutex);
};

}  // namespace com_tesk::session
