#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "message/Export.h"

namespace com_tesk {

class CSClientProtocol;
class CSCommsInterfaceTCP;
class RawMessage;

/// A client of a simulation host: opens a connection, registers outputs to publish and inputs to receive, publishes
/// values and hears of everything through callbacks. `SimClient` is the one to create.
///
/// Registrations are kept. After a lost connection (with `OPTION_AUTO_RECONNECT`) the client registers everything again
/// and sends the last published values. Closing erases every registration. Without that option, a failed connect and a
/// lost connection do, too: register again before the next `open`.
///
/// Results. Operations that return an `int` give a `Result`: 0 for success, 2 for a failure (a connection that is not closed,
/// a failed write) and 3 for a refused argument. A line on standard error says more, unless `OPTION_SILENT` is set.
/// Without a connection, registering and publishing succeed: they take effect at the host when the connection is
/// established. `sendMessage` gives 1 then.
///
/// Threads. Every operation may be called from any thread, also inside callbacks, except where `CallbackIface` says
/// otherwise. Construction and destruction are the owner's: no other thread may be inside an operation by then.
///
/// Blocking. Registering, unregistering and publishing write to the socket on the calling thread: they block while the
/// socket's send buffer is full, for at most 30 seconds, and other operations on parameters wait for them. When a write
/// fails and `OPTION_AUTO_RECONNECT` is set, the operation also sleeps one second, holding no lock. The `wait...`
/// operations and `close` sleep whole seconds.
///
/// Memory. When memory runs out, `std::bad_alloc` reaches the caller. Registration says what is then kept; publishing
/// has stored all values or none; unregistering and adding an interface have changed nothing; a list that was asked for
/// may hold a part. On the worker, the connection ends as after a read error.
class CSCLIENT_EXPORT CSClient {
  public:
    /// The state of the connection. The numbers are part of the interface.
    enum State : std::uint32_t {
        STATE_DISCONNECTED = 0,   ///< No connection, and nobody working on one. Entering it forgets every registration.
        STATE_CONNECTING = 1,     ///< Waits for the host to accept: the first attempt or a retry, once a second.
        STATE_CONNECTED = 2,      ///< The host has accepted. Followed by `STATE_READY` at once.
        STATE_DISCONNECTING = 3,  ///< Waits for the worker to close the connection.
        STATE_READY = 4,          ///< Requests are sent and values arrive; waits for the connection to end.
        STATE_RECONNECTING = 5,   ///< The connection was lost. Followed by `STATE_CONNECTING` at once.
    };

    /// What operations return. The numbers are part of the interface.
    enum Result : int {
        RESULT_OK = 0,             ///< Done, or stored for the next connection.
        RESULT_NOT_CONNECTED = 1,  ///< `sendMessage` only: there is no connection, and nothing was sent.
        RESULT_FAILED = 2,         ///< The connection is not closed, a write has failed, or no thread could be started.
        RESULT_REFUSED = 3,        ///< An argument was refused.
    };

    /// How the 32 bits of a value are read. Any number but 0 can be stored; what is not 2 is handled as a float.
    using ParameterType = std::uint32_t;
    static constexpr ParameterType TYPE_UNDEFINED = 0;  ///< Refused by registration and publishing.
    static constexpr ParameterType TYPE_FLOAT = 1;      ///< IEEE 754 single precision.
    static constexpr ParameterType TYPE_INT = 2;        ///< Two's-complement signed integer.

    /// Connect again after a failed attempt or a lost connection, once a second, without limit. Without this option,
    /// any failure, also of the first connect, ends in `STATE_DISCONNECTED`, which erases every registration.
    static constexpr unsigned int OPTION_AUTO_RECONNECT = 1;

    /// Print no diagnostics. Two kinds of line are printed all the same: socket options that the system refuses while
    /// connecting, and a new simulator id assigned by the host.
    static constexpr unsigned int OPTION_SILENT = 2;

    /// What `open` can ask of the socket.
    struct ConnectionOptions {
        std::uint32_t receiveBufferSize = 0;  ///< Socket receive buffer in bytes; 0 leaves the system's default.
        std::uint32_t sendBufferSize = 0;     ///< Socket send buffer in bytes; 0 leaves the system's default.
    };

    /// An input to subscribe to.
    struct InputDef {
        /// At most 31 bytes; compared byte for byte. Any bytes will do, none too; but a zero byte ends the name on the
        /// wire, and then the host's confirmation names another parameter.
        std::string name;
        ParameterType type = TYPE_UNDEFINED;  ///< `TYPE_INT` asks for integers, anything else but 0 for floats.
        /// 1, 2 and 3 select the rate codes 12000, 0 and 120000 in the request. Any other number is accepted and
        /// selects 0. The host decides what a rate code means: use the mode that its documentation names.
        std::uint32_t subscriptionMode = 0;
    };

    /// An output to publish.
    struct OutputDef {
        std::string name;  ///< As `InputDef::name`.
        /// `TYPE_FLOAT` or `TYPE_INT`. Any other number but 0 is accepted, but its values never reach the wire: such a
        /// record of a publication is cut off behind its id, and spoils those behind it.
        ParameterType type = TYPE_UNDEFINED;
    };

    /// 32 bits that a type says how to read. They are copied unchanged and never converted.
    union Value {
        float asFloat;       ///< The bits as IEEE 754 single precision.
        std::int32_t asInt;  ///< The bits as a two's-complement integer.
    };

    /// A named value.
    struct Parameter {
        std::string name;                     ///< As it was registered.
        Value value = {0.0F};                 ///< To be read as `type` says.
        ParameterType type = TYPE_UNDEFINED;  ///< `TYPE_FLOAT` or `TYPE_INT` in every record that the library makes.
        std::uint32_t reserved = 0;           ///< 0 in every record that the library makes; never read.
    };

    /// What an application implements to hear of events. The application owns the object and keeps it alive while it is
    /// added; the library never deletes one.
    ///
    /// Threads. Values and confirmations come on the client's worker thread. State changes come on the thread that
    /// makes them: the worker, or the application's thread inside `open`, `close` or a failed write. Two calls may run
    /// at once on different threads. While a callback runs on the worker, nothing is received.
    ///
    /// What a callback may do. All of them may register, unregister, publish, query, and add or remove interfaces,
    /// themselves included; such a change takes effect from the next event. An interface that another thread removes
    /// may still get the call that is under way, so do not destroy it at once. A callback must not destroy the client
    /// and must not throw. Every operation that sleeps or waits in a callback on the worker delays everything that the
    /// worker does: waiting there for a confirmation or a state is waiting in vain.
    ///
    /// `connectionStateChanged` runs under the lock of the connection: it must not `open` or `close` the same client,
    /// nor wait for another thread that does. The other three run under no lock.
    class CallbackIface {
      public:
        virtual ~CallbackIface() = default;

        // The records that a callback is given are the library's, and live until it returns.

        /// The connection's state has changed. `getConnectionState` already gives `newState` here.
        virtual void connectionStateChanged(State oldState, State newState) = 0;

        /// New values of inputs have arrived: first those that came with a confirmation, possibly none, then
        /// those of each update, in the host's order. The types are the host's, not those registered.
        virtual void inputParametersUpdated(const std::vector<Parameter>& parameters) = 0;

        /// The host has confirmed outputs, possibly none that are known. Comes before the last published values of
        /// these outputs are sent again.
        virtual void outputParametersConfirmed(const std::vector<OutputDef>& outputs) = 0;

        /// The host has confirmed inputs, possibly none that are known. `inputParametersUpdated` with their current
        /// values follows on the same interface at once.
        virtual void inputParametersConfirmed(const std::vector<InputDef>& inputs) = 0;
    };

    /// Installs no engine: a subclass does, and only then is the object usable.
    /// @param options  for the subclass's engine; not looked at here.
    explicit CSClient(unsigned int options);
    CSClient(const CSClient&) = delete;
    CSClient& operator=(const CSClient&) = delete;

    /// Closes the connection, waits for `STATE_DISCONNECTED` without limit, in whole seconds, and deletes the engine
    /// with its transport. The callback interfaces hear of the end, so they must still be there. A derived class with members
    /// that callbacks use, or with virtual operations of its own, closes in its own destructor first.
    ///
    /// Without a connection it returns at once. A callback that does not return holds it up for as long; with the
    /// standard transport, a connect under way does for up to 30 seconds, and a host that stalls in the middle of a
    /// message for ever. The buffered transport ends such waits.
    virtual ~CSClient();

    /// @name Connection
    /// @{

    /// Starts connecting, on a worker thread, and returns at once: after the callbacks have heard of
    /// `STATE_CONNECTING`, on the calling thread. It waits for a change of state that another thread is making. Takes
    /// the connection's lock, so not in `connectionStateChanged`.
    /// @param address  IPv4, in network order.
    /// @param port     TCP port; only its low 16 bits count.
    /// @param options  copied; null means defaults.
    /// @return 0 started; 2 the state is not `STATE_DISCONNECTED` and nothing has changed, or no thread could be
    ///         started. After the latter the client is stuck in `STATE_CONNECTING` (`open` has then slept a second) or
    ///         `STATE_DISCONNECTING`, and its destructor waits for ever.
    virtual int open(unsigned int address, unsigned int port, const ConnectionOptions* options);

    /// As above, with a dotted address; not null, read during the call only. Text that is no address is passed on as
    /// 255.255.255.255, to which nothing connects.
    int open(const char* address, unsigned int port, const ConnectionOptions* options);

    /// Ends the connection and forgets every registration. Waits for the worker, in whole seconds, for at most two,
    /// after at most 50 ms for a state change in progress. With `CSCommsInterfaceTCPBuffered` the worker ends at once, so
    /// it takes one second. Callbacks that are notified of `STATE_DISCONNECTING` run on the calling thread, or on the
    /// thread that is changing the state, and take their own time. Without a connection it returns 0 at once. In a callback
    /// on the worker it returns `STATE_DISCONNECTING` after its two seconds. Any thread, also several at once; not in
    /// `connectionStateChanged`.
    /// @return 0 when the connection is gone: the last callbacks have returned and the tables are empty. Otherwise the
    ///         state still reached, usually `STATE_DISCONNECTING`; the worker goes on to end by itself.
    virtual State close();

    /// Replaces the transport; only in `STATE_DISCONNECTED`. `CSCommsInterfaceTCPBuffered` is the one to give. The
    /// client sets the transport's options at every attempt to connect: the buffer sizes to those given to `open`, and
    /// `quiet` to false. Takes the connection's lock, so not in `connectionStateChanged`.
    /// @param transport  made with `new`; no two clients may have the same.
    /// @return true: the client owns `transport` now and has deleted the one before, unless it is the same. False, when it
    ///         is null or the state is another: the caller keeps it.
    bool changeCommsInterface(CSCommsInterfaceTCP* transport);

    /// Sends a copy of a message in a frame, with one write, on the calling thread. A data message of more than 8 bytes
    /// gets its length in its bytes 4 to 7; no other byte is looked at. Takes no lock unless the write fails; blocks as
    /// the class says.
    /// @return 0 sent; 1 not connected, nothing sent; 2 the write failed and the connection has been closed; 3 the
    ///         message's type is `RawMessage::INVALID`, nothing sent.
    int sendMessage(const RawMessage& message);

    /// Polls the state once a second, `seconds` times, and once more at the end. Takes no lock and waits for nothing else:
    /// when it has seen the state, the callbacks of the change to it may still be running.
    /// @return true as soon as the state was seen. With 0 seconds it is a single poll, which never blocks.
    bool waitForConnectionState(State wanted, unsigned int seconds) const;

    /// @}
    /// @name Queries
    /// None blocks, but for those that count or look up parameters, which wait for a registration or publication that
    /// is being written.
    /// @{

    /// The options given to the constructor.
    unsigned int getOptions() const;
    /// Whether every bit of `mask` is set; true for 0.
    bool hasOptions(unsigned int mask) const;
    /// The state now. When it is `STATE_DISCONNECTED`, the worker has done everything that it had to do: the last
    /// callback has returned and the tables are empty. Only inside the callback that announces that state it comes
    /// earlier.
    State getConnectionState() const;
    /// The host's version text, as last reported; "UNKNOWN" before.
    std::string getServerVersion() const;
    /// The host's protocol version, as last reported; 0 before.
    unsigned int getProtocolVersion() const;
    /// The address given to `open`, dotted; "0.0.0.0" before, and once the connection ends for good.
    std::string getServerIPAddress() const;
    /// The port given to `open`; 0 before, and once the connection ends for good.
    unsigned int getServerPort() const;
    /// This library's version. The text is constant and lives as long as the program.
    static const char* getClientVersion();

    /// The number of ids under which the host has confirmed outputs. Ids of earlier connections stay counted. After a
    /// reconnection, outputs therefore still look confirmed, and the number can exceed that of the outputs.
    int getNumberOfRegisteredOutputParameters() const;
    /// Outputs minus confirmed ids: negative when ids of earlier connections are counted.
    int getNumberOfUnregisteredOutputParameters() const;
    /// The number of ids under which the host has confirmed inputs on this connection (while it is lost: on the last
    /// one). It exceeds the number of inputs when the host has confirmed one twice, under different ids.
    int getNumberOfRegisteredInputParameters() const;
    /// Inputs minus confirmed ids.
    int getNumberOfUnregisteredInputParameters() const;
    /// Whether the host has confirmed the output, on this connection or an earlier one: an output keeps its id over a
    /// reconnection. `outputParametersConfirmed` tells when the host has confirmed it on this connection.
    bool isOutputParameterRegistered(const std::string& name) const;
    /// Whether the host has confirmed the input on this connection. While the connection is lost: on the last one.
    bool isInputParameterRegistered(const std::string& name) const;

    /// @}
    /// @name Outputs
    /// @{

    /// As `registerOutputParameters` with one.
    int registerOutputParameter(const OutputDef& definition);

    /// Registers outputs with one request, in the order given.
    ///
    /// Definitions are taken one by one. The first that is refused (type 0; a name of 32 or more characters; a name
    /// already registered, or named again later in the same call) ends the call; those before it stay registered
    /// locally and reach the host at the next connection. The same holds when memory runs out.
    /// @param definitions  `count` of them, copied; may be null when that is 0.
    /// @param count        0 does nothing and succeeds.
    /// @return 0 sent, or remembered for the next connection; 2 the write failed (they stay registered locally);
    ///         3 a definition was refused.
    int registerOutputParameters(const OutputDef* definitions, unsigned int count);
    /// As `registerOutputParameters` with all of them.
    int registerOutputParameters(const std::vector<OutputDef>& definitions);

    /// Polls once a second, at most `seconds` times, whether every output is confirmed, and sleeps after the last poll,
    /// too. It compares the number of outputs with the number of ids, also without a connection:
    ///   - When no output is registered, it returns true at once.
    ///   - Ids from earlier connections stay counted. After a reconnection it can return true before the host has
    ///     confirmed anything, and it can time out although every output is confirmed.
    /// @return true as soon as the numbers were equal; always false for 0 seconds.
    bool waitForOutputsToBeRegistered(unsigned int seconds) const;

    /// As `unregisterOutputParameters` with one.
    int unregisterOutputParameter(const std::string& name);

    /// Unregisters the outputs named, with one request, and erases them. Unknown names are skipped. The request
    /// carries the outputs' ids. The host keeps an output that it has not confirmed on this connection until the
    /// connection ends: the request has no id for it, or that of an earlier connection.
    /// @return 0 done, also without a connection; 2 the write failed and nothing is erased.
    int unregisterOutputParameters(const std::vector<std::string>& names);
    /// As `unregisterOutputParameters` with the names of `count` definitions; nothing else of them is looked at.
    /// @throw std::length_error  `count` is above 1,073,741,823.
    int unregisterOutputParameters(const OutputDef* definitions, unsigned int count);
    /// As `unregisterOutputParameters` with the names of all outputs at the moment of the call. What another thread
    /// registers meanwhile may stay. After a failed write they all stay.
    void unregisterAllOutputParameters();

    /// @}
    /// @name Inputs
    /// As for outputs.
    /// @{

    /// As `registerInputParameters` with one.
    int registerInputParameter(const InputDef& definition);
    /// As the operation on outputs. The subscription mode is not checked.
    int registerInputParameters(const InputDef* definitions, unsigned int count);
    /// As `registerInputParameters` with all of them.
    int registerInputParameters(const std::vector<InputDef>& definitions);
    /// As `waitForOutputsToBeRegistered`, but from a reconnection on, ids of earlier connections do not count. While the
    /// reconnection rebuilds the inputs, the table is empty for a moment, and it returns true.
    bool waitForInputsToBeRegistered(unsigned int seconds) const;
    /// As `unregisterInputParameters` with one.
    int unregisterInputParameter(const std::string& name);
    /// As the operation on outputs.
    int unregisterInputParameters(const std::vector<std::string>& names);
    /// As `unregisterInputParameters` with the names of `count` definitions.
    /// @throw std::length_error  `count` is above 1,073,741,823.
    int unregisterInputParameters(const InputDef* definitions, unsigned int count);
    /// As the operation on outputs.
    void unregisterAllInputParameters();

    /// @}
    /// @name Publishing
    /// @{

    /// As `publishParameters` with one.
    int publishParameter(const Parameter& parameter);

    /// Publishes new values of registered outputs with one request. All or nothing: when any record is refused (type 0;
    /// a name that is too long or not registered), no stored value changes.
    ///
    /// A record's 32 bits are sent unchanged, with the type that the output was registered with. A value that is
    /// published before the host has confirmed the output is sent at once, and again after the confirmation. Until then
    /// it has the id 0x000FFFFF on the first connection, and the id of the earlier connection after a reconnection.
    /// @param parameters  `count` records; read during the call only, and may be null when that is 0.
    /// @param count       0 does nothing and succeeds.
    /// @return 0 sent, or stored for the next connection; 2 the write failed (the values stay stored and are sent when
    ///         the outputs are next confirmed); 3 a record was refused.
    int publishParameters(const Parameter* parameters, unsigned int count);
    /// As `publishParameters` with all of them.
    int publishParameters(const std::vector<Parameter>& parameters);

    /// Reads back the value of an output, as last published, or 0.
    /// @param name         the output's.
    /// @param[in,out] out  gets the name and the value's bits. Its `type` says how to read the value: 2 as an integer,
    ///                     anything else as a float, and then it becomes 1. `reserved` stays as it is. Untouched when
    ///                     the result is false.
    /// @return whether the output is registered.
    bool findPublishedParameter(const std::string& name, Parameter& out) const;

    /// Appends one record per registered output, published or not, in ascending name order. What is in `out` stays.
    void getAllPublishedParameters(std::vector<Parameter>& out) const;

    /// @}
    /// @name Callbacks
    /// None blocks. The interfaces are the application's.
    /// @{

    /// Adds an interface; it hears of what happens from now on.
    /// @return 1 added; 0 it was there already, or it is null.
    unsigned int addCallbackInterface(CallbackIface* callbackInterface);
    /// Removes an interface. It may still get the call of an event that is under way. Needs no memory.
    /// @return 0, also when it was not there.
    int removeCallbackInterface(CallbackIface* callbackInterface);
    /// Whether the interface has been added.
    bool hasCallbackInterface(CallbackIface* callbackInterface);
    /// How many have been added.
    int getNumCallbackInterfaces() const;
    /// Replaces the contents of `out` with the interfaces.
    /// @return 0.
    int getCallbackInterfaces(std::set<CallbackIface*>& out);

    /// @}

  protected:
    /// Closes the connection and waits for `STATE_DISCONNECTED` without limit, in whole seconds.
    [[gnu::noinline]] CSCLIENT_INTERNAL void endConnection();

    /// Owned; constant once the subclass has been constructed.
    CSClientProtocol* engine = nullptr;
};

}  // namespace com_tesk
