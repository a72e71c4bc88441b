#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "message/Export.h"

namespace com_tesk {

class CSClientProtocol;
class CSCommsInterfaceTCP;
class RawMessage;

/// A client of a simulation host. It opens a connection, registers outputs to publish and inputs to receive, and
/// publishes values. Callbacks notify the application of every event. `SimClient` is the class to create.
///
/// Registrations. With `OPTION_AUTO_RECONNECT`, the client registers everything again after a lost connection, and
/// sends the last published values. Without it, a failed connect or a lost connection erases every registration.
/// Closing always erases them. Register again before the next `open`.
///
/// Results. Operations that return an `int` return a `Result`. Failures are a connection that is not closed, a failed
/// write, or a thread that could not be started. A line on standard error gives details, unless `OPTION_SILENT` is
/// set. Without a connection, registering and publishing succeed: they take effect at the host when the connection is
/// established. `sendMessage` then returns 1.
///
/// Threads. Every operation may be called from any thread, also inside callbacks, except where `CallbackIface` says
/// otherwise. The owner constructs and destroys the object. When destruction begins, no other thread may be inside an
/// operation.
///
/// Blocking. Registering, unregistering and publishing write to the socket on the calling thread. They block while
/// the socket's send buffer is full, for at most 30 seconds; other operations on parameters wait for them. When a
/// write fails and `OPTION_AUTO_RECONNECT` is set, the operation also sleeps one second, holding no lock. The
/// `wait...` operations and `close` sleep whole seconds.
///
/// Memory. When memory runs out, the caller gets `std::bad_alloc`. Publishing has then stored all values or none.
/// Unregistering and adding an interface have changed nothing. A list that the caller requested may be partly filled.
/// For registration, see there. When memory runs out on the worker, the connection ends as after a read error.
class CSCLIENT_EXPORT CSClient {
  public:
    /// The state of the connection. The numbers are part of the interface.
    enum State : std::uint32_t {
        STATE_DISCONNECTED = 0,   ///< No connection and no attempt. Entering it erases every registration.
        STATE_CONNECTING = 1,     ///< Waits for the host to accept: the first attempt, or a retry once a second.
        STATE_CONNECTED = 2,      ///< The host has accepted. Followed by `STATE_READY` at once.
        STATE_DISCONNECTING = 3,  ///< Waits for the worker to close the connection.
        STATE_READY = 4,          ///< Requests are sent and values arrive; waits for the connection to end.
        STATE_RECONNECTING = 5,   ///< The connection was lost. Followed by `STATE_CONNECTING` at once.
    };

    /// The results of operations. The numbers are part of the interface.
    enum Result : int {
        RESULT_OK = 0,             ///< Done, or stored for the next connection.
        RESULT_NOT_CONNECTED = 1,  ///< `sendMessage` only: there is no connection, and nothing was sent.
        RESULT_FAILED = 2,         ///< The connection is not closed, a write has failed, or no thread could be started.
        RESULT_REFUSED = 3,        ///< An argument was refused.
    };

    /// Selects how the 32 bits of a value are read. Any number but 0 can be stored; any but 2 is handled as a float.
    using ParameterType = std::uint32_t;
    static constexpr ParameterType TYPE_UNDEFINED = 0;  ///< Refused by registration and publishing.
    static constexpr ParameterType TYPE_FLOAT = 1;      ///< IEEE 754 single precision.
    static constexpr ParameterType TYPE_INT = 2;        ///< Two's-complement signed integer.

    /// Connects again after a failed attempt or a lost connection, once a second, without limit. Without this option,
    /// any failure, also of the first connect, ends in `STATE_DISCONNECTED`, which erases every registration.
    static constexpr unsigned int OPTION_AUTO_RECONNECT = 1;

    /// Prints no diagnostics, except for refused socket options while connecting and a new simulator id from the host.
    static constexpr unsigned int OPTION_SILENT = 2;

    /// Socket options for `open`.
    struct ConnectionOptions {
        std::uint32_t receiveBufferSize = 0;  ///< Socket receive buffer in bytes; 0 leaves the system's default.
        std::uint32_t sendBufferSize = 0;     ///< Socket send buffer in bytes; 0 leaves the system's default.
    };

    /// An input to subscribe to.
    struct InputDef {
        /// At most 31 bytes, of any values, or empty; compared byte for byte. A zero byte ends the name on the wire,
        /// so the host's confirmation then names another parameter.
        std::string name;
        ParameterType type = TYPE_UNDEFINED;  ///< `TYPE_INT` requests integers; any other type but 0, floats.
        /// 1, 2 and 3 select the rate codes 12000, 0 and 120000 in the request; any other number selects 0. The host
        /// defines the meaning of a rate code: use the mode that its documentation names.
        std::uint32_t subscriptionMode = 0;
    };

    /// An output to publish.
    struct OutputDef {
        std::string name;  ///< As `InputDef::name`.
        /// `TYPE_FLOAT` or `TYPE_INT`. Any other number but 0 is accepted, but its values never reach the wire: the
        /// record ends after the id, which corrupts the records after it in the same request.
        ParameterType type = TYPE_UNDEFINED;
    };

    /// The 32 bits of a value. The type selects how to read them. They are copied unchanged and never converted.
    union Value {
        float asFloat;       ///< The bits as IEEE 754 single precision.
        std::int32_t asInt;  ///< The bits as a two's-complement integer.
    };

    /// A named value. An aggregate: `{"altitude", {1234.5F}, TYPE_FLOAT}`. Its first braces initialize `asFloat`, so
    /// make an integer with `ofInt`.
    struct Parameter {
        /// Returns a value with its type. The name is as it was registered.
        /// @{
        static Parameter ofFloat(std::string name, float number) {
            Parameter parameter{std::move(name), {}, TYPE_FLOAT, 0};
            parameter.value.asFloat = number;
            return parameter;
        }
        static Parameter ofInt(std::string name, std::int32_t number) {
            Parameter parameter{std::move(name), {}, TYPE_INT, 0};
            parameter.value.asInt = number;
            return parameter;
        }
        /// @}

        std::string name;                     ///< As it was registered.
        Value value = {0.0F};                 ///< `type` selects how to read it.
        ParameterType type = TYPE_UNDEFINED;  ///< `TYPE_FLOAT` or `TYPE_INT` in every record that the library makes.
        std::uint32_t reserved = 0;           ///< 0 in every record that the library makes; never read.
    };

    /// The interface that an application implements to be notified of events. The application owns the object and
    /// keeps it alive while it is added. The library never deletes one. The library owns the records that it passes to
    /// a callback. They are valid until the callback returns.
    ///
    /// Threads. Values and confirmations are reported on the client's worker thread. State changes are reported on
    /// the thread that makes them: the worker, or the application's thread inside `open`, `close` or a failed write.
    /// Two calls may run at once on different threads. While a callback runs on the worker, nothing is received.
    ///
    /// Permitted operations. Every callback may register, unregister, publish, query, and add or remove interfaces,
    /// including itself, with effect from the next event. It must not destroy the client and must not throw. Every
    /// operation that sleeps or waits in a callback on the worker delays the worker. Do not wait there for a
    /// confirmation or a state: it cannot arrive until the callback returns.
    ///
    /// `connectionStateChanged` runs under the lock of the connection. It must not `open` or `close` the same client,
    /// nor wait for another thread that does. The other three run under no lock.
    class CallbackIface {
      public:
        virtual ~CallbackIface() = default;

        /// Reports a change of the connection's state. `getConnectionState` already returns `newState` here.
        virtual void connectionStateChanged(State oldState, State newState) = 0;

        /// Reports new values of inputs: first those that came with a confirmation, possibly none, then those of each
        /// update, in the host's order. The types are the host's, not those registered.
        virtual void inputParametersUpdated(const std::vector<Parameter>& parameters) = 0;

        /// Reports outputs that the host has confirmed. The list is empty when none of them is registered. Their last
        /// published values are sent again after this call.
        virtual void outputParametersConfirmed(const std::vector<OutputDef>& outputs) = 0;

        /// Reports inputs that the host has confirmed. The list is empty when none of them is registered.
        /// `inputParametersUpdated` with their current values follows on the same interface at once.
        virtual void inputParametersConfirmed(const std::vector<InputDef>& inputs) = 0;
    };

    /// A `CallbackIface` whose operations do nothing. Derive from it and override those that the application needs.
    class CallbackAdapter : public CallbackIface {
      public:
        /// As in `CallbackIface`; each does nothing.
        /// @{
        void connectionStateChanged(State /*oldState*/, State /*newState*/) override {}
        void inputParametersUpdated(const std::vector<Parameter>& /*parameters*/) override {}
        void outputParametersConfirmed(const std::vector<OutputDef>& /*outputs*/) override {}
        void inputParametersConfirmed(const std::vector<InputDef>& /*inputs*/) override {}
        /// @}
    };

    /// Installs no engine. The object is usable only after a subclass has installed one.
    /// @param options  for the subclass's engine; not used here.
    explicit CSClient(unsigned int options);
    CSClient(const CSClient&) = delete;
    CSClient& operator=(const CSClient&) = delete;

    /// Closes the connection, waits for `STATE_DISCONNECTED` without limit, in whole seconds, and deletes the engine
    /// with its transport. Callback interfaces are notified of the end, so they must still exist. A derived class with
    /// virtual operations of its own, or with members that callbacks use, closes first in its own destructor.
    /// Without a connection it returns at once. A callback that does not return blocks it for as long. With the
    /// standard transport, a connect in progress delays it for up to 30 seconds, and a host that stalls in the middle
    /// of a message blocks it without limit. The buffered transport ends such waits.
    virtual ~CSClient();

    /// @name Connection
    /// @{

    /// Starts connecting on a worker thread. Notifies the callbacks of `STATE_CONNECTING` on the calling thread, and
    /// does not wait for the connection. When another thread is changing the state, it waits for that change. It takes
    /// the connection's lock, so do not call it in `connectionStateChanged`.
    /// @param address  IPv4, in network order.
    /// @param port     TCP port; only its low 16 bits count.
    /// @param options  copied; null means defaults.
    /// @return 0 started; 2 the state is not `STATE_DISCONNECTED` and nothing has changed, or no thread could be
    ///         started. Without a thread the client is stuck in `STATE_CONNECTING` (`open` has then slept a second)
    ///         or `STATE_DISCONNECTING`. Its destructor then waits without limit.
    virtual int open(unsigned int address, unsigned int port, const ConnectionOptions* options = nullptr);

    /// As above, with a dotted address, which must not be null. It is read during the call only. Text that is no
    /// address is passed on as 255.255.255.255; no connection to that address succeeds.
    int open(const char* address, unsigned int port, const ConnectionOptions* options = nullptr);

    /// Ends the connection and erases every registration. Blocks for at most 2.05 seconds and the time that callbacks
    /// take: up to 50 ms for a state change in progress, then up to two seconds, in whole seconds, for the worker. With
    /// `CSCommsInterfaceTCPBuffered` the worker ends at once, so it takes one second. Without a connection it returns 0
    /// at once. Callbacks are notified of `STATE_DISCONNECTING` on the calling thread, or on the thread that is
    /// changing the state. In a callback on the worker it returns `STATE_DISCONNECTING` after its two seconds. Several
    /// threads may call it at once, but not in `connectionStateChanged`.
    /// @return 0 when the connection has ended: the last callbacks have returned and the tables are empty. Otherwise
    ///         the current state, usually `STATE_DISCONNECTING`; the worker completes the end without another call.
    virtual State close();

    /// Replaces the transport; only in `STATE_DISCONNECTED`. Pass a `CSCommsInterfaceTCPBuffered`. Every attempt to
    /// connect sets the transport's options: the buffer sizes to those given to `open`, and `quiet` to false. It takes
    /// the connection's lock, so do not call it in `connectionStateChanged`.
    /// @param transport  made with `new`; two clients must not have the same.
    /// @return true: the client now owns `transport` and has deleted the previous one, unless it is the same. False,
    ///         when `transport` is null or in any other state: the caller keeps it.
    bool changeCommsInterface(CSCommsInterfaceTCP* transport);
    /// As above, and destroys `transport` when it is refused:
    /// `client.changeCommsInterface(std::make_unique<CSCommsInterfaceTCPBuffered>())`.
    bool changeCommsInterface(std::unique_ptr<CSCommsInterfaceTCP> transport);

    /// Sends a copy of a message in a frame, with one write, on the calling thread. Its bytes are sent unchanged, but
    /// in a data message of more than 8 bytes, bytes 4 to 7 become its length. Takes no lock of the client unless the
    /// write fails. Blocks as described for the class.
    /// @return 0 sent; 1 not connected; 2 the write failed and the connection has been closed; 3 the message's type is
    ///         `RawMessage::INVALID`. Nothing is sent with 1 and 3.
    int sendMessage(const RawMessage& message);

    /// Polls the state once a second, `seconds` times, and once more at the end; with 0 it never blocks. Takes no lock.
    /// @return true as soon as a poll finds the state. The callbacks of that change may still be running.
    bool waitForConnectionState(State wanted, unsigned int seconds) const;
    /// @}
    /// @name Queries
    /// Only those that count or find parameters block: while another thread writes a registration or publication.
    /// @{

    unsigned int getOptions() const;           ///< Returns the options given to the constructor.
    bool hasOptions(unsigned int mask) const;  ///< True when every bit of `mask` is set; so also for 0.
    /// Returns the current state. `STATE_DISCONNECTED` means that the worker is done: the last callback has returned
    /// and the tables are empty. Only inside the callback that announces that state, it is returned earlier.
    State getConnectionState() const;
    /// Returns the host's version text, as last reported; "UNKNOWN" before the first report.
    std::string getServerVersion() const;
    /// Returns the host's protocol version, as last reported; 0 before the first report.
    unsigned int getProtocolVersion() const;
    /// Returns the address given to `open`, dotted; "0.0.0.0" before, and once the connection ends for good.
    std::string getServerIPAddress() const;
    /// Returns the port given to `open`; 0 before, and once the connection ends for good.
    unsigned int getServerPort() const;
    /// Returns this library's version. The text is constant and valid until the program ends.
    static const char* getClientVersion();

    /// Returns the number of ids under which the host has confirmed outputs. Ids of earlier connections stay counted,
    /// so after a reconnection outputs still appear confirmed, and the number can exceed that of the outputs.
    int getNumberOfRegisteredOutputParameters() const;
    /// Returns outputs minus confirmed ids. Negative when ids of earlier connections are counted.
    int getNumberOfUnregisteredOutputParameters() const;
    /// Returns the number of ids under which the host has confirmed inputs on this connection, or on the last while it
    /// is lost. It exceeds the number of inputs when the host has confirmed an input under two ids.
    int getNumberOfRegisteredInputParameters() const;
    int getNumberOfUnregisteredInputParameters() const;  ///< Returns inputs minus confirmed ids.
    /// True when the host has confirmed the output, on this connection or an earlier one: an output keeps its id.
    /// `outputParametersConfirmed` reports the confirmation on this connection.
    bool isOutputParameterRegistered(const std::string& name) const;
    /// True when the host has confirmed the input on this connection, or on the last while it is lost.
    bool isInputParameterRegistered(const std::string& name) const;
    /// @}
    /// @name Outputs
    /// @{

    int registerOutputParameter(const OutputDef& definition);  ///< As `registerOutputParameters` with one.

    /// Registers outputs with one request, one by one in the order given. The first that is refused ends the call.
    /// Reasons are type 0, a name of 32 or more characters, and a name that is already registered or occurs again
    /// later in the call. The definitions before it stay registered locally and reach the host at the next connection,
    /// also when memory runs out.
    /// @param definitions  an array, copied.
    /// @param count        its length. 0 does nothing and succeeds, also with null.
    /// @return 0 sent, or stored for the next connection; 2 the write failed (they stay registered locally); 3 a
    ///         definition was refused.
    int registerOutputParameters(const OutputDef* definitions, unsigned int count);
    /// As `registerOutputParameters` with all of them.
    int registerOutputParameters(const std::vector<OutputDef>& definitions);

    /// Polls once a second, at most `seconds` times, until every output is confirmed. It also sleeps after the last
    /// poll. It compares the number of outputs with the number of ids, also without a connection, so without outputs
    /// it returns true at once. Ids from earlier connections stay counted: after a reconnection it can return true
    /// before the host has confirmed anything, and it can time out although every output is confirmed.
    /// @return true as soon as the numbers were equal; always false for 0 seconds.
    bool waitForOutputsToBeRegistered(unsigned int seconds) const;

    int unregisterOutputParameter(const std::string& name);  ///< As `unregisterOutputParameters` with one name.

    /// Unregisters the named outputs with one request and erases them. Unknown names are skipped. The request has no
    /// id, or that of an earlier connection, for an output that the host has not confirmed on this connection. The
    /// host then keeps the output until the connection ends.
    /// @return 0 done, also without a connection; 2 the write failed and nothing is erased.
    int unregisterOutputParameters(const std::vector<std::string>& names);
    /// As `unregisterOutputParameters` with the names of `count` definitions; their other fields are not used.
    /// @throw std::length_error  `count` is above 1,073,741,823.
    int unregisterOutputParameters(const OutputDef* definitions, unsigned int count);
    /// As `unregisterOutputParameters` with the names of all outputs. Those that another thread registers meanwhile
    /// may stay. After a failed write they all stay.
    void unregisterAllOutputParameters();
    /// @}
    /// @name Inputs
    /// As for outputs.
    /// @{

    int registerInputParameter(const InputDef& definition);  ///< As `registerInputParameters` with one.
    /// As the operation on outputs. The subscription mode is not checked.
    int registerInputParameters(const InputDef* definitions, unsigned int count);
    /// As `registerInputParameters` with all of them.
    int registerInputParameters(const std::vector<InputDef>& definitions);
    /// As `waitForOutputsToBeRegistered`, except that ids of earlier connections do not count after a reconnection.
    /// While the reconnection rebuilds the inputs, the table is briefly empty, and a poll returns true.
    bool waitForInputsToBeRegistered(unsigned int seconds) const;
    int unregisterInputParameter(const std::string& name);  ///< As `unregisterInputParameters` with one name.
    int unregisterInputParameters(const std::vector<std::string>& names);  ///< As the operation on outputs.
    /// As `unregisterInputParameters` with the names of `count` definitions.
    /// @throw std::length_error  `count` is above 1,073,741,823.
    int unregisterInputParameters(const InputDef* definitions, unsigned int count);
    void unregisterAllInputParameters();  ///< As the operation on outputs.
    /// @}
    /// @name Publishing
    /// @{

    int publishParameter(const Parameter& parameter);  ///< As `publishParameters` with one.

    /// Publishes new values of registered outputs with one request. All or nothing: when any record is refused, no
    /// stored value changes. A record is refused for type 0, and for a name that is too long or not registered.
    ///
    /// A record's 32 bits are sent unchanged, with the type that the output was registered with. A value that is
    /// published before the host has confirmed the output is sent at once, and again after the confirmation. Until
    /// then its id is 0x000FFFFF on the first connection, and that of the earlier connection after a reconnection.
    /// @param parameters  an array, read during the call only.
    /// @param count       its length. 0 does nothing and succeeds, also with null.
    /// @return 0 sent, or stored for the next connection; 2 the write failed (the values stay stored and are sent when
    ///         the outputs are next confirmed); 3 a record was refused.
    int publishParameters(const Parameter* parameters, unsigned int count);
    int publishParameters(const std::vector<Parameter>& parameters);  ///< As `publishParameters` with all of them.

    /// Reads back the last published value of an output, or 0 when none was published.
    /// @param name         of the output.
    /// @param[in,out] out  receives the name and the value's bits. Type 2 is kept: the value is an integer. Any other
    ///                     `type` becomes 1: the value is a float. `reserved` and, on false, the rest stay unchanged.
    /// @return true when the output is registered.
    bool findPublishedParameter(const std::string& name, Parameter& out) const;

    /// Appends one record per registered output to `out`, published or not, in ascending name order.
    void getAllPublishedParameters(std::vector<Parameter>& out) const;
    /// @}
    /// @name Callbacks
    /// None blocks. The application owns the interfaces.
    /// @{

    /// Adds an interface to notify of events from now on. Returns 1 when added; 0 when it already was, or is null.
    unsigned int addCallbackInterface(CallbackIface* callbackInterface);
    /// Removes an interface. Returns 0, also when it had not been added, and 2 when the lock could not be released. Needs
    /// no memory. A call in progress on another thread may still reach it, so do not destroy it at once.
    int removeCallbackInterface(CallbackIface* callbackInterface);
    bool hasCallbackInterface(CallbackIface* callbackInterface);  ///< True when the interface has been added.
    int getNumCallbackInterfaces() const;                         ///< Returns the number of interfaces.
    /// Replaces the contents of `out` with the interfaces, and returns 0.
    int getCallbackInterfaces(std::set<CallbackIface*>& out);
    /// @}

  protected:
    /// Closes the connection and waits for `STATE_DISCONNECTED` without limit, in whole seconds.
    [[gnu::noinline]] CSCLIENT_INTERNAL void endConnection();

    CSClientProtocol* engine = nullptr;  ///< Owned; constant once the subclass has been constructed.
};

}  // namespace com_tesk
