#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "client/CSClient.h"
#include "message/Export.h"
#include "message/RawMessage.h"

namespace com_tesk {

class CSCommsInterfaceTCP;

/// The engine of a `CSClient`: one connection with its worker thread, the callback interfaces, and the tables of
/// registered parameters. A derived protocol (`SimulatorProtocol`) encodes and decodes the messages.
///
/// `CSClient` documents the operations that it forwards. Any thread may call any operation, unless stated otherwise.
/// Cancelling an application thread inside an operation is safe: the worker then ends the connection.
///
/// Two locks concern a derived class. `connectionMutex` is held through every state change, and so through
/// `connectionStateChanged`, the version request and the re-registration. `parameterMutex` is held while the tables
/// are read or changed, and while the request for the change is written. A thread that holds `connectionMutex` may
/// take `parameterMutex`.
///
/// An object may be deleted once `getState` returns `STATE_DISCONNECTED` and no other thread is inside one of its
/// operations.
class CSCLIENT_EXPORT CSClientProtocol {
  public:
    /// The mode of a publish request. It is sent unchanged with every request.
    enum PublishMode : std::uint32_t { PUBLISH_DEFAULT = 0 };

    /// The id of a parameter that the host has not confirmed.
    static constexpr std::uint32_t kUnassignedId = 0xFFFFF;

    /// Names must be shorter than this: 31 characters and a terminating zero fill a name field.
    static constexpr std::size_t kMaxParameterNameLength = 32;

    /// One input. The first three fields are its definition.
    struct InputParameterEntry {
        std::string name;                                         ///< As `CSClient::InputDef::name`.
        CSClient::ParameterType type = CSClient::TYPE_UNDEFINED;  ///< As `CSClient::InputDef::type`.
        std::uint32_t subscriptionMode = 0;                       ///< As `CSClient::InputDef::subscriptionMode`.
        std::uint32_t serverId = kUnassignedId;  ///< The host's id, once it has confirmed the subscription.

        /// Returns an unconfirmed entry.
        static InputParameterEntry of(const CSClient::InputDef& definition) {
            return {definition.name, definition.type, definition.subscriptionMode, kUnassignedId};
        }
        CSClient::InputDef definition() const { return {name, type, subscriptionMode}; }  ///< A copy.
        bool isConfirmed() const { return serverId != kUnassignedId; }                    ///< By the host.
    };

    /// One output.
    struct OutputParameterEntry {
        std::string name;                                         ///< As `CSClient::OutputDef::name`.
        CSClient::ParameterType type = CSClient::TYPE_UNDEFINED;  ///< As `CSClient::OutputDef::type`.
        std::uint32_t serverId = kUnassignedId;  ///< The host's id, once it has confirmed the registration.
        bool published = false;                  ///< True when a value was ever published.
        CSClient::Value value = {0.0F};          ///< The last published value.

        /// Returns an unconfirmed entry that was never published.
        static OutputParameterEntry of(const CSClient::OutputDef& definition) {
            return {definition.name, definition.type, kUnassignedId, false, {0.0F}};
        }
        CSClient::OutputDef definition() const { return {name, type}; }  ///< A copy.
        bool isConfirmed() const { return serverId != kUnassignedId; }   ///< By the host.
    };

    /// Creates an engine with a standard transport. Opens nothing and starts no thread.
    /// @param optionFlags  as for `SimClient`; constant from now on.
    explicit CSClientProtocol(unsigned int optionFlags);
    CSClientProtocol(const CSClientProtocol&) = delete;
    CSClientProtocol& operator=(const CSClientProtocol&) = delete;

    /// Does not close the connection: the owner waits for `STATE_DISCONNECTED` first.
    virtual ~CSClientProtocol();

    /// @name Operations of a derived protocol
    /// The order of the virtual operations is part of the interface.
    /// @{

    /// Handles the body of one received frame. Worker thread, no lock held.
    virtual void handleReceivedMessage(const RawMessage& message) = 0;

    /// Acts on a change of state, after the callbacks. `STATE_CONNECTED` moves on to `STATE_READY`. `STATE_READY`
    /// requests the version and registers everything again. `STATE_DISCONNECTED` erases every parameter.
    /// `connectionMutex` is held.
    ///
    /// During a change to `STATE_READY`, registrations by other threads are left to that re-registration. When an
    /// override does not make it, those registrations are sent after the change.
    virtual void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState);

    /// As `CSClient::registerInputParameters`.
    virtual int registerInputParameters(const CSClient::InputDef* definitions, unsigned int count);
    /// As `CSClient::unregisterInputParameters`.
    virtual int unregisterInputParameters(const std::vector<std::string>& names);

    /// Requests the host's version; the answer arrives as a message.
    /// @return as `sendMessage`.
    virtual int requestSimulatorVersion() = 0;
    /// @}

    /// Sends one request for the batch, in its order. `mode` is sent unchanged. The caller holds `parameterMutex`,
    /// which guards the entries. The operation neither changes nor keeps them.
    /// @return 0 sent, or the batch is empty, or there is no connection; 2 the write failed.
    /// @{
    virtual int sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) = 0;
    virtual int sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) = 0;
    virtual int sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) = 0;
    virtual int sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) = 0;
    virtual int sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) = 0;
    /// @}

    /// @name Queries
    /// None blocks.
    /// @{
    unsigned int getOptions() const;           ///< As `CSClient::getOptions`.
    bool hasOptions(unsigned int mask) const;  ///< As `CSClient::hasOptions`.
    /// As `CSClient::getState`. Other threads than the worker see `STATE_DISCONNECTED` only after cleanup is complete.
    CSClient::State getState() const;
    std::string getServerVersion() const;     ///< As `CSClient::getServerVersion`.
    unsigned int getProtocolVersion() const;  ///< As `CSClient::getProtocolVersion`.
    std::string getServerIPAddress() const;   ///< As `CSClient::getServerIPAddress`.
    unsigned int getServerPort() const;       ///< As `CSClient::getServerPort`.
    /// @}

    /// @name Connection
    /// These take `connectionMutex`, so code that runs in a state change must not call them.
    /// @{

    /// Replaces the transport; only in `STATE_DISCONNECTED`. Passing the current transport changes nothing.
    /// @return true: the engine owns `newComms` and has deleted any other transport. False, when `newComms` is null
    ///         or in any other state: the caller keeps it.
    bool changeCommsInterface(CSCommsInterfaceTCP* newComms);

    /// Ends the connection after a failure. With `OPTION_AUTO_RECONNECT` it goes back to connecting and sleeps for
    /// one second on the calling thread. Without that option it is `forceCloseConnection`.
    void closeConnection();

    /// Requests the end of the connection; the worker ends it. Does nothing when it has ended or is ending. Blocks
    /// for at most 50 ms and the time that callbacks take. When a state change in progress takes longer, or the
    /// calling thread makes it, the close is deferred until that change is complete.
    void forceCloseConnection();

    /// Makes one connection attempt. Worker thread.
    /// @return 0 connected; 2 not, and `closeConnection` has been called.
    int startConnection();

    /// Runs `engine` until its connection ends: the worker's routine. Returns null.
    static void* mainThread(void* engine);

    /// Changes the state, notifies the callback interfaces, then calls `handleConnectionStateChange`. Does nothing
    /// when the engine is in that state. For use in `handleConnectionStateChange`: the caller holds
    /// `connectionMutex`.
    void setState(CSClient::State newState);
    /// @}

    /// Sends a copy of `message` in a frame, with one write. Takes no engine lock unless the write fails.
    /// @return 0 sent; 1 not connected, nothing sent; 2 the write failed, and the connection closes as soon as this
    ///         thread holds no engine lock; 3 the message's type is `RawMessage::INVALID`, nothing sent.
    unsigned int sendMessage(const RawMessage& message);

    /// Reads and checks one frame header. Worker thread.
    /// @param[out] type        the frame's message type; unchanged when the result is false.
    /// @param[out] bodyLength  the number of bytes that follow. When the result is false it is unchanged, or it is
    ///                         the frame length that was refused.
    /// @return false when nothing has arrived within the transport's time-out, or after an error, which has closed the
    ///         connection.
    bool readMessageHeader(RawMessage::Type& type, unsigned int& bodyLength);

    /// Reads at most one frame and passes its body to `handleReceivedMessage`. Worker thread. Blocks for one second
    /// when nothing arrives. In the middle of a frame it waits as long as the transport does.
    void receiveMessage();

    /// Returns the number of registered parameters, or of the ids under which the host has confirmed parameters.
    /// @{
    unsigned int getNumberOfInputParameters(bool confirmed) const;
    unsigned int getNumberOfOutputParameters(bool confirmed) const;
    /// @}

    /// Returns parameters minus confirmed ids. Negative when ids of earlier connections are counted.
    /// @{
    int getNumberOfInputParametersWaitingForConfirmation() const;
    int getNumberOfOutputParametersWaitingForConfirmation() const;
    /// @}

    /// True when the parameter is registered and, if `confirmed` is true, has an id of its own from the host.
    /// @{
    bool hasInputParameter(const std::string& name, bool confirmed) const;
    bool hasOutputParameter(const std::string& name, bool confirmed) const;
    /// @}

    /// Erases every parameter. The host is not notified.
    void unregisterAllLocalParameters();

    /// As the operation of `CSClient` with this name; `openConnection` is `CSClient::open`. The operations for all
    /// inputs or outputs list the names without `parameterMutex`. They therefore do not wait for a request that is
    /// being written. Parameters that another thread registers meanwhile may stay.
    /// @{
    void unregisterAllInputParameters();
    void unregisterAllOutputParameters();
    int registerOutputParameters(const CSClient::OutputDef* definitions, unsigned int count);
    int unregisterOutputParameters(const std::vector<std::string>& names);
    int publishParameters(const CSClient::Parameter* parameters, unsigned int count, PublishMode mode);
    bool findPublishedParameter(const std::string& name, CSClient::Parameter& parameter) const;
    void getAllPublishedParameters(std::vector<CSClient::Parameter>& parameters) const;
    unsigned int addCallbackInterface(CSClient::CallbackIface* callbackInterface);
    int removeCallbackInterface(CSClient::CallbackIface* callbackInterface);
    bool hasCallbackInterface(CSClient::CallbackIface* callbackInterface) const;
    int getNumCallbackInterfaces() const;
    int getCallbackInterfaces(std::set<CSClient::CallbackIface*>& out) const;
    int openConnection(unsigned int address, unsigned int port, const CSClient::ConnectionOptions* options);
    /// @}

    /// @name Re-registration
    /// Intended: inputs and outputs are treated differently, and hosts rely on it. Inputs are rebuilt from their
    /// definitions and wait for fresh ids. Outputs are sent again unchanged, with ids, values and confirmations kept.
    /// Nothing is sent for an empty table.
    /// @{
    void reregisterAllInputParameters();   ///< When memory runs out the inputs stay registered, unconfirmed.
    void reregisterAllOutputParameters();  ///< Sends one request for all outputs.
                                           /// @}

  protected:
    /// @name For the message handlers of a derived protocol
    /// Worker thread, no lock held.
    /// @{

    /// Stores that the host has confirmed an input under `id`. Callback interfaces are not notified.
    /// @return true when there is such an input.
    bool confirmInputParameter(const std::string& name, std::uint32_t id);
    bool confirmOutputParameter(const std::string& name, std::uint32_t id);  ///< As for inputs.
    /// Calls `notify` for each callback interface, in ascending pointer order.
    void notifyCallbackInterfaces(const std::function<void(CSClient::CallbackIface&)>& notify);
    /// Stores the host's version text and protocol version, for the queries.
    void storeServerVersion(const std::string& text, unsigned int protocolVersion);
    /// @}

    /// The internal parts of the engine, for the library's own protocol. The header is not installed.
    class CSCLIENT_INTERNAL Parts;
    Parts& engineParts() const { return *parts; }  ///< Returns the internal parts.

  private:
    std::unique_ptr<Parts> parts;
};

}  // namespace com_tesk
