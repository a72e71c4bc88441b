#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "comms/CSCommsInterfaceTCPBuffered.h"
#include "message/Export.h"
#include "session/Health.h"
#include "session/Input.h"
#include "session/Link.h"
#include "session/Output.h"

namespace com_tesk {

namespace session {
class Core;
}  // namespace session

/// A client of a simulation host, for programs with a main loop of their own. Values have types, callbacks run on the
/// application's thread, and the session connects again by itself.
///
/// Declare outputs and inputs, then `start`. From then on the session keeps trying to connect. On each connection it
/// registers everything that is declared. An id that the host has assigned is used on that connection only, so a value
/// never arrives under another name. When the host has confirmed an output, its newest value leaves.
///
/// Threads. Any thread may call any operation, also inside a callback, except where an operation says otherwise. The
/// session has two threads: one receives, one sends and connects. With `Dispatch::OWN_THREAD` a third runs the
/// callbacks. No lock of the session is held while a callback runs. A callback may do anything: declare, set, stop,
/// even destroy the session.
///
/// Blocking. Only the operations with a time block, and `stop`, which takes less than 50 ms.
///
/// Memory. When memory runs out the caller gets `std::bad_alloc`, and nothing has changed. On the session's threads
/// the connection ends, and the session connects again.
class CSCLIENT_EXPORT Session {
  public:
    /// Which thread runs the callbacks.
    enum class Dispatch : std::uint8_t {
        CALLER,      ///< The thread that calls `dispatch`.
        OWN_THREAD,  ///< A thread of the session, from `start` on.
    };
    static constexpr Dispatch OWN_THREAD = Dispatch::OWN_THREAD;  ///< Short name.

    /// The weight of a line of the log.
    enum class Level : std::uint8_t { DETAIL, INFO, WARNING, FAULT };

    /// Receives lines of the log. Any thread of the session or the application may call it, several at once. It must
    /// not block, must not throw, and must not call the session. `text` has no line feed.
    using LogFunction = std::function<void(Level level, std::string_view text)>;

    /// What a session connects to, its times and bounds, and who runs its callbacks.
    struct Options {
        std::string host = "127.0.0.1";  ///< A dotted IPv4 address, or a name, which each attempt looks up again.
        std::uint16_t port = 55580;      ///< The host's TCP port.
        unsigned int simulatorId = 1;  ///< Identifies this client to the host: 0 to 32767. The host may assign another.

        /// Bounds of the transport. `writeTimeout` is the longest time for which the host may read nothing.
        CSCommsInterfaceTCPBuffered::Bounds bounds;

        /// Interval of version requests that check whether the host still answers; 0 is off. After three unanswered
        /// ones the connection is given up. At least a millisecond.
        std::chrono::milliseconds heartbeat{0};
        /// Time after which a connected peer that has not answered the first version request is reported.
        std::chrono::milliseconds answerTimeout{2'000};
        /// Shortest time between the beginnings of two attempts to connect. At least a millisecond.
        std::chrono::milliseconds retry{1'000};
        /// Time for which a staged value waits for others and for `flush`, before it leaves by itself. With 0 it
        /// leaves as soon as the session's thread runs.
        std::chrono::microseconds gather{1'000};

        /// Values that an output or input with `Delivery::EVERY` holds at most. At least 1.
        std::size_t queueSize = 64;
        /// Sent with each subscription: see `CSClient::InputDef::subscriptionMode`.
        std::uint32_t subscriptionMode = 0;

        Dispatch dispatch = Dispatch::CALLER;  ///< Which thread runs the callbacks.

        /// Receives the log. When it is empty, warnings and faults go to standard error, each a line that begins with
        /// "csclient: ". The session never prints on standard output.
        LogFunction log;
    };

    /// Prepares a session. Opens no connection and starts no thread.
    /// @throw std::invalid_argument  an option is not valid; the text names it.
    /// @throw std::system_error      the system has no more file descriptors.
    explicit Session(Options options);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// As `stop()`, then waits for a callback that is running on another thread. No callback runs afterwards. Within
    /// a callback it does not wait for that callback.
    ~Session();

    /// @name Declaring
    /// @{

    /// Declares a parameter and returns its handle. Any thread; never blocks.
    /// Before `start`, all declarations of a direction are registered with one request; later ones at once.
    /// A declaration with the name, type and delivery of an earlier one returns the same parameter. An output and an
    /// input may have the same name.
    /// @throw std::invalid_argument  the name is empty, has more than 31 bytes or a zero byte, or is declared with
    ///                               another type or delivery. Nothing is declared.
    /// @{
    template <typename T>
    Output<T> output(std::string_view name, Delivery delivery = Delivery::NEWEST);
    template <typename T>
    Input<T> input(std::string_view name, Delivery delivery = Delivery::NEWEST);
    /// @}
    /// @}

    /// @name Connection
    /// @{

    /// Starts to connect. Does nothing when the session is started. A session can be started again after `stop`.
    /// @throw std::system_error  no thread could be started; the session is still stopped.
    void start();

    /// Ends the connection and the session's threads. Declarations stay, for another `start`. Values that are staged
    /// stay staged. Takes less than 50 ms, whatever the host and the network do. Within a callback too.
    void stop();

    /// As `stop()`, but first lets the staged values leave, and waits until the host's system has acknowledged them.
    /// Returns as soon as that is so. Values of outputs that are not confirmed do not leave.
    /// @param timeout  the longest time to wait.
    /// @return true when everything has been acknowledged. False when time has run out, or the connection was lost.
    bool stop(std::chrono::milliseconds timeout);

    /// Returns the state of the link. Never blocks.
    Link link() const;

    /// Blocks until the link is `wanted` or better, for at most `timeout`. `Link::STOPPED` waits for exactly that.
    /// @return true when it is.
    bool waitUntil(Link wanted, std::chrono::milliseconds timeout) const;

    /// Blocks until the host has confirmed all of these on the current connection, for at most `timeout`.
    /// @return true when it has. Each input among them then has a value of this connection.
    bool waitConfirmed(std::initializer_list<ParameterHandle> handles, std::chrono::milliseconds timeout) const;
    bool waitConfirmed(const std::vector<ParameterHandle>& handles, std::chrono::milliseconds timeout) const;
    /// @}

    /// @name Sending
    /// @{

    /// Sends what is staged now, in one frame, on the calling thread. When the socket cannot take it, or another
    /// thread is sending, the session's thread sends it. Never blocks.
    void flush();

    /// As `flush()`, then blocks until all staged values have been handed to the system, for at most `timeout`.
    /// @return true when nothing is staged any more. False when time has run out, as without a connection.
    bool flush(std::chrono::milliseconds timeout);
    /// @}

    /// @name Callbacks
    /// @{

    /// Returns a descriptor that is readable while callbacks wait: for `poll`, epoll and event loops. The session
    /// owns it; do not read from it and do not close it. Valid as long as the session. -1 with
    /// `Dispatch::OWN_THREAD`.
    int descriptor() const;

    /// Runs the callbacks that wait, on the calling thread, and returns. Never waits for the host. Within a callback,
    /// while another thread dispatches, and with `Dispatch::OWN_THREAD`, it does nothing.
    /// Order: events of the link, then inputs in the order of their values, then updates.
    /// An exception of a callback leaves this call; the callbacks after it wait for the next.
    /// @return the number of callbacks that were run.
    std::size_t dispatch();

    /// Sets the function that is called for changes of the link. At most 64 events wait; when there are more, the
    /// oldest is dropped and counted. An empty function removes the earlier one.
    void onLink(std::function<void(const LinkEvent&)> callback);

    /// Sets the function that is called once after one or more updates of the host, when all inputs hold the new
    /// values and their functions have been called. An empty function removes the earlier one.
    /// @param callback  receives the number of values that have arrived since its last call.
    void onUpdate(std::function<void(std::size_t count)> callback);
    /// @}

    /// @name Queries
    /// @{
    Health health() const;                            ///< Blocks briefly at most; allocates for one text.
    std::vector<ParameterStatus> parameters() const;  ///< Outputs, then inputs, each in the order of declaration.

    /// @}

  private:
    session::OutputSlot& declareOutput(std::string_view name, ParameterStatus::Type type, Delivery delivery);
    session::InputSlot& declareInput(std::string_view name, ParameterStatus::Type type, Delivery delivery);

    const std::shared_ptr<session::Core> core;
};

extern template CSCLIENT_EXPORT Output<float> Session::output(std::string_view name, Delivery delivery);
extern template CSCLIENT_EXPORT Output<std::int32_t> Session::output(std::string_view name, Delivery delivery);
extern template CSCLIENT_EXPORT Output<bool> Session::output(std::string_view name, Delivery delivery);
extern template CSCLIENT_EXPORT Input<float> Session::input(std::string_view name, Delivery delivery);
extern template CSCLIENT_EXPORT Input<std::int32_t> Session::input(std::string_view name, Delivery delivery);
extern template CSCLIENT_EXPORT Input<bool> Session::input(std::string_view name, Delivery delivery);
extern template CSCLIENT_EXPORT Input<Number> Session::input(std::string_view name, Delivery delivery);

}  // namespace com_tesk
