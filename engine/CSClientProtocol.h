#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <memory_resource>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "client/CSClient.h"
#include "comms/CSMutex.h"
#include "comms/CSThread.h"
#include "comms/CSUseCount.h"
#include "comms/InterruptiblePause.h"
#include "comms/ThreadSafety.h"
#include "engine/LookupIndex.h"
#include "message/Export.h"
#include "message/RawMessage.h"
#include "message/SpareMessage.h"

namespace com_tesk {

class CSCommsInterfaceTCP;

/// The engine behind `CSClient`: one connection with its worker thread, the callback interfaces, and the tables of
/// registered parameters. A derived protocol (`SimulatorProtocol`) says what the messages look like.
///
/// Operations that `CSClient` forwards here are described there; this header adds what a derived class and a reader of
/// the engine need.
///
/// Locks, in the order in which one thread may take them:
///   1. `connectionMutex`: held through every state change, and so through `connectionStateChanged`, the version
///      request and the re-registration that a change to `STATE_READY` starts.
///   2. `parameterMutex`: held while the tables are read or changed, and while the request that goes with the change
///      is written.
///   3. `namesMutex`, `callbackMutex`, `versionMutex`: each for a few instructions; nothing is called under them.
///
/// A write that fails under one of the first two cannot close the connection at once: that takes the first, and sleeps.
/// The close is deferred, and the same thread carries it out once it holds neither (engine/EngineLocks.h).
///
/// Cancelling an application thread inside an operation is safe. When the operation was writing, or had a close to carry
/// out, the worker ends the connection.
///
/// An object of a derived class may be deleted as soon as `getState` gives `STATE_DISCONNECTED` and no other thread is
/// inside one of its operations.
class CSCLIENT_EXPORT CSClientProtocol {
  public:
    /// Sent with every publish request and passed through unchanged.
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

        /// The entry of an input that the host has not confirmed.
        static InputParameterEntry of(const CSClient::InputDef& definition) {
            return {definition.name, definition.type, definition.subscriptionMode, kUnassignedId};
        }
        /// A copy of what it was registered with.
        CSClient::InputDef definition() const { return {name, type, subscriptionMode}; }
    };

    /// One output.
    struct OutputParameterEntry {
        std::string name;                                         ///< As `CSClient::OutputDef::name`.
        CSClient::ParameterType type = CSClient::TYPE_UNDEFINED;  ///< As `CSClient::OutputDef::type`.
        std::uint32_t serverId = kUnassignedId;  ///< The host's id, once it has confirmed the registration.
        bool published = false;                  ///< Whether a value was ever published.
        CSClient::Value value = {0.0F};          ///< The last published value.

        /// The entry of an output that the host has not confirmed and that was never published.
        static OutputParameterEntry of(const CSClient::OutputDef& definition) {
            return {definition.name, definition.type, kUnassignedId, false, {0.0F}};
        }
        /// A copy of what it was registered with.
        CSClient::OutputDef definition() const { return {name, type}; }
    };

    /// Opens nothing and starts no thread. It comes with a standard transport.
    /// @param optionFlags  as for `SimClient`; constant from now on.
    explicit CSClientProtocol(unsigned int optionFlags);
    CSClientProtocol(const CSClientProtocol&) = delete;
    CSClientProtocol& operator=(const CSClientProtocol&) = delete;

    /// Neither closes the connection nor waits for it to end: the owner sees to `STATE_DISCONNECTED` first. Waits for
    /// the last instructions of a worker that has already announced that state.
    virtual ~CSClientProtocol();

    /// @name What a derived protocol fills in
    /// The order of the virtual operations is part of the interface.
    /// @{

    /// Handles the body of one received frame. Worker thread, no lock held.
    virtual void handleReceivedMessage(const RawMessage& message) = 0;

    /// What the engine itself does on a change of state, after the callbacks: `STATE_CONNECTED` moves on to
    /// `STATE_READY`; `STATE_READY` requests the version and registers everything again; `STATE_DISCONNECTED` forgets
    /// every parameter.
    ///
    /// What other threads register during a change to `STATE_READY` is left to that re-registration. When an override has
    /// not made it, it is made when the change ends, if there is anything to send.
    virtual void handleConnectionStateChange(CSClient::State oldState, CSClient::State newState)
        CSCLIENT_REQUIRES(connectionMutex);

    /// As `CSClient::registerInputParameters`.
    virtual int registerInputParameters(const CSClient::InputDef* definitions, unsigned int count)
        CSCLIENT_EXCLUDES(parameterMutex);
    /// As `CSClient::unregisterInputParameters`.
    virtual int unregisterInputParameters(const std::vector<std::string>& names) CSCLIENT_EXCLUDES(parameterMutex);

    /// Asks the host for its version; the answer arrives as a message.
    /// @return as `sendMessage`.
    virtual int requestSimulatorVersion() = 0;

    /// @name Request senders
    /// Each sends one request for the batch, in its order. They are called with `parameterMutex` held, which guards the
    /// entries; those are read only and not kept.
    /// @return 0 sent, or the batch is empty, or there is no connection; 2 the write failed.
    /// @{

    /// Subscribes the batch.
    virtual int sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) = 0;
    /// Unsubscribes the batch.
    virtual int sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) = 0;
    /// Registers the batch.
    virtual int sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) = 0;
    /// Unregisters the batch.
    virtual int sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) = 0;
    /// Publishes the values of the batch. `mode` is sent as it is.
    virtual int sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) = 0;
    /// @}
    /// @}

    /// @name Queries
    /// None blocks.
    /// @{
    unsigned int getOptions() const;           ///< As `CSClient::getOptions`.
    bool hasOptions(unsigned int mask) const;  ///< As `CSClient::hasOptions`.
    /// While the worker announces `STATE_DISCONNECTED`, its callbacks already see that state and every other thread
    /// still sees `STATE_DISCONNECTING`, so that whoever sees the end may rely on it.
    CSClient::State getState() const;
    std::string getServerVersion() const;     ///< As `CSClient::getServerVersion`.
    unsigned int getProtocolVersion() const;  ///< As `CSClient::getProtocolVersion`.
    std::string getServerIPAddress() const;   ///< As `CSClient::getServerIPAddress`.
    unsigned int getServerPort() const;       ///< As `CSClient::getServerPort`.
    /// @}

    /// @name Connection (engine/Connection.cpp)
    /// Not to be called by code that a state change has called: they take `connectionMutex`.
    /// @{

    /// Replaces the transport; only in `STATE_DISCONNECTED`. Giving it the transport that it has changes nothing.
    /// @return true: the engine owns `newComms` and has deleted any other transport. False, when it is null or the state
    ///         is another: the caller keeps it.
    bool changeCommsInterface(CSCommsInterfaceTCP* newComms) CSCLIENT_EXCLUDES(connectionMutex);

    /// As `CSClient::open`.
    int openConnection(unsigned int address, unsigned int port, const CSClient::ConnectionOptions* options)
        CSCLIENT_EXCLUDES(connectionMutex);

    /// Ends the connection after a failure: with `OPTION_AUTO_RECONNECT` it goes back to connecting and sleeps one
    /// second on the calling thread, otherwise it is `forceCloseConnection`.
    void closeConnection() CSCLIENT_EXCLUDES(connectionMutex);

    /// Requests the end of the connection; the worker carries it out. Does nothing when it has ended or is ending.
    /// Blocks for at most 50 ms and what the callbacks take: when a state change in progress takes longer, or the calling
    /// thread makes it, the request is noted and carried out as soon as that change is complete.
    void forceCloseConnection() CSCLIENT_EXCLUDES(connectionMutex);

    /// One connection attempt. Worker thread.
    /// @return 0 connected; 2 not, and `closeConnection` has been called.
    int startConnection() CSCLIENT_EXCLUDES(connectionMutex);

    /// The worker's routine: runs the connection of the engine in `engine` until it ends.
    /// @return null.
    static void* mainThread(void* engine);

    /// Changes the state and tells the callback interfaces, then `handleConnectionStateChange`. Does nothing when it is
    /// the state already.
    void setState(CSClient::State newState) CSCLIENT_REQUIRES(connectionMutex);
    /// @}

    /// @name Frames (engine/Framing.cpp)
    /// @{

    /// Sends a copy of `message` in a frame, with one write. Any thread; takes no lock unless the write fails.
    /// @return 0 sent; 1 not connected, nothing sent; 2 the write failed, and the connection is closed as soon as this
    ///         thread holds no engine lock; 3 the message's type is `RawMessage::INVALID`, nothing sent.
    unsigned int sendMessage(const RawMessage& message);

    /// Reads and checks one frame header. Worker thread.
    /// @param[out] type        the frame's message type; unchanged when the result is false.
    /// @param[out] bodyLength  the bytes that follow. When the result is false it is unchanged, or the frame length
    ///                         that was refused.
    /// @return false when nothing has arrived within the transport's time-out, or after an error, which has closed the
    ///         connection.
    bool readMessageHeader(RawMessage::Type& type, unsigned int& bodyLength) CSCLIENT_EXCLUDES(connectionMutex);

    /// Reads at most one frame and has its body handled. Worker thread. Blocks for one second when nothing arrives; in
    /// the middle of a frame it waits for ever.
    void receiveMessage() CSCLIENT_EXCLUDES(connectionMutex);
    /// @}

    /// @name Callback interfaces (engine/Callbacks.cpp)
    /// The integer results are the status of releasing `callbackMutex`: 0, or 2 when that failed.
    /// @{

    /// As `CSClient::addCallbackInterface`, and the result is that one's too.
    unsigned int addCallbackInterface(CSClient::CallbackIface* callbackInterface) CSCLIENT_EXCLUDES(callbackMutex);
    /// As `CSClient::removeCallbackInterface`.
    int removeCallbackInterface(CSClient::CallbackIface* callbackInterface) CSCLIENT_EXCLUDES(callbackMutex);
    /// As `CSClient::hasCallbackInterface`.
    bool hasCallbackInterface(CSClient::CallbackIface* callbackInterface) const CSCLIENT_EXCLUDES(callbackMutex);
    /// As `CSClient::getNumCallbackInterfaces`.
    int getNumCallbackInterfaces() const CSCLIENT_EXCLUDES(callbackMutex);
    /// As `CSClient::getCallbackInterfaces`.
    int getCallbackInterfaces(std::set<CSClient::CallbackIface*>& out) const CSCLIENT_EXCLUDES(callbackMutex);
    /// @}

    /// @name Parameter tables (engine/ParameterTables.cpp)
    /// The flag asks for confirmed parameters only. Counting goes by the ids that the host has given, looking up by the
    /// entry's own id.
    /// @{

    /// The inputs, or the ids under which the host has confirmed inputs.
    unsigned int getNumberOfInputParameters(bool confirmed) const CSCLIENT_EXCLUDES(parameterMutex);
    /// The outputs, or the ids under which the host has confirmed outputs.
    unsigned int getNumberOfOutputParameters(bool confirmed) const CSCLIENT_EXCLUDES(parameterMutex);
    /// Parameters minus confirmed ids; negative when ids of earlier connections are counted.
    int getNumberOfInputParametersWaitingForConfirmation() const CSCLIENT_EXCLUDES(parameterMutex);
    /// As for inputs.
    int getNumberOfOutputParametersWaitingForConfirmation() const CSCLIENT_EXCLUDES(parameterMutex);
    /// Whether the input is registered, or confirmed too.
    bool hasInputParameter(const std::string& name, bool confirmed) const CSCLIENT_EXCLUDES(parameterMutex);
    /// Whether the output is registered, or confirmed too.
    bool hasOutputParameter(const std::string& name, bool confirmed) const CSCLIENT_EXCLUDES(parameterMutex);

    /// Forgets every parameter without telling the host.
    void unregisterAllLocalParameters() CSCLIENT_EXCLUDES(parameterMutex);
    /// @}

    /// @name Registration (engine/InputRegistration.cpp, engine/OutputRegistration.cpp)
    /// @{

    /// Lists the names without `parameterMutex`, on purpose: a request that is being written does not hold the listing
    /// up. What another thread registers meanwhile may stay.
    void unregisterAllInputParameters() CSCLIENT_EXCLUDES(parameterMutex);
    /// As `CSClient::registerOutputParameters`.
    int registerOutputParameters(const CSClient::OutputDef* definitions, unsigned int count)
        CSCLIENT_EXCLUDES(parameterMutex);
    /// As `CSClient::unregisterOutputParameters`.
    int unregisterOutputParameters(const std::vector<std::string>& names) CSCLIENT_EXCLUDES(parameterMutex);
    /// As `unregisterAllInputParameters`.
    void unregisterAllOutputParameters() CSCLIENT_EXCLUDES(parameterMutex);
    /// @}

    /// @name Re-registration (engine/Reregistration.cpp)
    /// Deliberately different: inputs are rebuilt from their definitions and wait for fresh ids; outputs are sent again
    /// as they are, with ids, values and confirmations kept.
    /// @{

    /// Without inputs it sends nothing. When memory runs out the inputs stay registered, unconfirmed.
    void reregisterAllInputParameters() CSCLIENT_EXCLUDES(parameterMutex);
    /// Without outputs it sends nothing.
    void reregisterAllOutputParameters() CSCLIENT_EXCLUDES(parameterMutex);
    /// @}

    /// @name Publishing (engine/Publishing.cpp)
    /// @{

    /// As `CSClient::publishParameters`, with the mode to send.
    int publishParameters(const CSClient::Parameter* parameters, unsigned int count, PublishMode mode)
        CSCLIENT_EXCLUDES(parameterMutex);
    /// As `CSClient::findPublishedParameter`.
    bool findPublishedParameter(const std::string& name, CSClient::Parameter& parameter) const
        CSCLIENT_EXCLUDES(parameterMutex);
    /// As `CSClient::getAllPublishedParameters`.
    void getAllPublishedParameters(std::vector<CSClient::Parameter>& parameters) const
        CSCLIENT_EXCLUDES(parameterMutex);
    /// @}

  protected:
    class ConnectionLock;
    class ParameterLock;
    class WorkerParameterLock;

    /// The mutex of the connection. Only `ConnectionLock` and `underConnectionLock` take and release it, so that a request
    /// to close made meanwhile is never left behind.
    class CSCLIENT_CAPABILITY("mutex") ConnectionMutex : private CSMutex {
      public:
        using CSMutex::isHeldByThisThread;
        /// As `CSMutex::assertHeld`.
        void assertHeld() const CSCLIENT_ASSERT_CAPABILITY(this) {}

      private:
        friend class CSClientProtocol;
        friend class ConnectionLock;
    };

    /// Runs `step` with `connectionMutex` held, then carries out what was deferred or requested meanwhile, which may make
    /// callbacks and sleep a second. Defined in engine/EngineLocks.h, as the two below.
    template <typename Step>
    void underConnectionLock(const Step& step) CSCLIENT_EXCLUDES(connectionMutex);
    /// As `underConnectionLock`, but waits at most `timeout` for the mutex.
    /// @return whether `step` was run.
    template <typename Step>
    bool underConnectionLockWithin(std::chrono::milliseconds timeout, const Step& step)
        CSCLIENT_EXCLUDES(connectionMutex);
    /// Runs `step` with `parameterMutex` held, then carries out a deferred close.
    /// @return the result of `step`.
    template <typename Step>
    int underParameterLock(const Step& step) CSCLIENT_EXCLUDES(parameterMutex);

    /// Callback interfaces in ascending pointer order; null where one was removed for lack of memory for another list.
    using CallbackList = std::vector<std::atomic<CSClient::CallbackIface*>>;

    /// Whether lines are to be left out: `OPTION_SILENT`.
    bool isSilent() const { return hasOptions(CSClient::OPTION_SILENT); }

    /// The transport. Outside `connectionMutex` only for the worker, and for senders counted in `senders` that have
    /// seen a connected state: it changes in `STATE_DISCONNECTED` only, when there is no worker and after those
    /// senders.
    CSCommsInterfaceTCP& transport() const CSCLIENT_NO_THREAD_SAFETY_ANALYSIS { return *comms; }

    /// Makes `callbackList` of `callbacks`.
    void replaceCallbackList() CSCLIENT_REQUIRES(callbackMutex);

    /// The interfaces to notify, in ascending pointer order. Allocates nothing.
    std::shared_ptr<const CallbackList> callbacksToNotify() const CSCLIENT_EXCLUDES(callbackMutex);

    /// `interfaces = callbacksToNotify()`, kept out of what is done for every update.
    [[gnu::cold]] void renewCallbacks(std::shared_ptr<const CallbackList>& interfaces) const
        CSCLIENT_EXCLUDES(callbackMutex);

    /// Calls `notify(interface)` for each interface, with no lock taken meanwhile.
    template <typename Notify>
    void notifyCallbacks(const Notify& notify) const {
        notifyAll(*callbacksToNotify(), notify);
    }

    /// As `notifyCallbacks`, on the worker thread. Takes no lock while the interfaces are those of the last time.
    template <typename Notify>
    void notifyFromWorker(const Notify& notify) {
        const std::uint32_t version = callbackListVersion;
        // Taken out meanwhile: what a callback does must not change the list that it is called from.
        std::shared_ptr<const CallbackList> interfaces;
        interfaces.swap(workerCallbacks);
        if (interfaces == nullptr || version != workerCallbacksVersion) {
            renewCallbacks(interfaces);
        }
        notifyAll(*interfaces, notify);
        workerCallbacks.swap(interfaces);
        workerCallbacksVersion = version;
    }

    /// Calls `notify(interface)` for each interface of the list that has not been removed from it.
    template <typename Notify>
    static void notifyAll(const CallbackList& interfaces, const Notify& notify) {
        for (const std::atomic<CSClient::CallbackIface*>& entry : interfaces) {
            CSClient::CallbackIface* const callbackInterface = entry;
            if (callbackInterface != nullptr) {
                notify(*callbackInterface);
            }
        }
    }

    /// @cond INTERNAL

    class CSCLIENT_INTERNAL FrameWrite;

    /// Stands for no connection where one is expected by number.
    static constexpr std::uint32_t kNoConnection = 0;

    /// Whether the registrations of inputs, or of outputs, have reached the host. From the beginning of a connection until
    /// its re-registration, what other threads register is left to that re-registration.
    struct Registered {
        /// The connection whose re-registration was made last. Changed under `parameterMutex`, by the thread that changes
        /// the state, which reads it without.
        std::atomic<std::uint32_t> onConnection{kNoConnection + 1};
        /// Whether anything was left to a re-registration that is still to come.
        bool hasLeft = false;
    };

    /// Closes a connection on which a write has failed, as soon as this thread holds no engine lock; nothing if that
    /// connection has ended meanwhile.
    void closeAfterFailedWrite(std::uint32_t failedConnection);

    /// Whether there is a connection to send to, as far as this thread is concerned.
    CSCLIENT_INTERNAL bool maySend() const;

    /// Sends a whole frame, with one write.
    /// @return as `sendMessage`.
    CSCLIENT_INTERNAL unsigned int sendFrame(const RawMessage& wholeFrame);

    /// Whether this thread has deferred the close of the connection: until it is carried out, nothing more is sent.
    CSCLIENT_INTERNAL bool hasDeferredClose() const;

    /// `closeConnection`, but when `onlyConnection` is a connection's number, for that one alone.
    CSCLIENT_INTERNAL void closeOrReconnect(std::uint32_t onlyConnection) CSCLIENT_EXCLUDES(connectionMutex);

    /// The state changes of `closeConnection`.
    /// @return whether the pause between two attempts follows.
    CSCLIENT_INTERNAL bool beginReconnecting() CSCLIENT_REQUIRES(connectionMutex);

    /// The state change of `forceCloseConnection`.
    CSCLIENT_INTERNAL void beginDisconnecting() CSCLIENT_REQUIRES(connectionMutex);

    /// The state change of `openConnection`.
    CSCLIENT_INTERNAL void beginConnecting() CSCLIENT_REQUIRES(connectionMutex);
    CSCLIENT_INTERNAL bool startWorker() CSCLIENT_REQUIRES(connectionMutex);

    /// Completes the state change of a thread that was cancelled between losing the connection and connecting again.
    CSCLIENT_INTERNAL void leaveReconnecting() CSCLIENT_EXCLUDES(connectionMutex);

    /// Notes that the connection is to be closed, and ends the waits of the transport and of the worker. Takes no lock.
    CSCLIENT_INTERNAL void requestClose();

    /// Carries out a request to close, unless another thread holds the lock, which then does so after releasing it.
    CSCLIENT_INTERNAL void closeIfRequested() CSCLIENT_EXCLUDES(connectionMutex);

    /// What follows a release of `connectionMutex`.
    void closeAsDeferred(std::uint32_t deferredConnection) CSCLIENT_EXCLUDES(connectionMutex);

    /// Leaves a connection to the worker to close. Called when a thread is cancelled.
    void abandon(std::uint32_t connection);
    /// Carries out the close that a cancelled thread has left. Worker thread.
    CSCLIENT_INTERNAL void closeIfAbandoned() CSCLIENT_EXCLUDES(connectionMutex);

    /// Whether what has just been registered is not to be sent now; notes that there was something.
    CSCLIENT_INTERNAL bool isLeftToReregistration(Registered& registered) CSCLIENT_REQUIRES(parameterMutex);
    /// The re-registration on this connection begins: it takes all that is in the table.
    /// @return whether anything was left to it.
    CSCLIENT_INTERNAL bool markRegistered(Registered& registered) const CSCLIENT_REQUIRES(parameterMutex);
    /// Whether the re-registration on this connection was made. For the thread that changes the state.
    CSCLIENT_INTERNAL bool isRegistered() const;
    /// Registers what was left to a re-registration that was not made.
    CSCLIENT_INTERNAL void registerWhatIsLeft() CSCLIENT_EXCLUDES(parameterMutex);
    /// Whether there is nothing to register again; then nothing more is left to the re-registration.
    CSCLIENT_INTERNAL bool isNothingRegistered() CSCLIENT_EXCLUDES(parameterMutex);

    /// Locks `parameterMutex`, and has other threads that want to send wait meanwhile.
    CSCLIENT_INTERNAL void lockParametersFirst() CSCLIENT_ACQUIRE(parameterMutex);

    /// `publishParameters`, with the lock held.
    CSCLIENT_INTERNAL int publishLocked(const CSClient::Parameter* parameters, unsigned int count, PublishMode mode)
        CSCLIENT_REQUIRES(parameterMutex);

    /// Gives the connection that now stands its number.
    CSCLIENT_INTERNAL void countConnection() CSCLIENT_REQUIRES(connectionMutex);

    /// The worker's loop and its end.
    CSCLIENT_INTERNAL void runWorker() CSCLIENT_EXCLUDES(connectionMutex);

    /// One turn of the loop, by the state; false when there is nothing left to do.
    CSCLIENT_INTERNAL bool takeTurn() CSCLIENT_EXCLUDES(connectionMutex);

    /// Sends every registration again, when there are any.
    CSCLIENT_INTERNAL void reregisterAllParameters() CSCLIENT_EXCLUDES(parameterMutex);

    /// Takes back, as waiting, the inputs that memory did not suffice to register again: moves what is not in the table
    /// from `oldInputs` to it. Allocates nothing.
    CSCLIENT_INTERNAL void restoreInputs(std::map<std::string_view, InputParameterEntry*>& oldInputs)
        CSCLIENT_EXCLUDES(parameterMutex);

    enum class BodyRead { WHOLE, CLOSED, FAILED };

    /// Reads the body of a frame, as long as it takes. Worker thread.
    CSCLIENT_INTERNAL BodyRead readBody(unsigned int bodyLength, RawMessage& message);
    /// Reports a failed read, unless silent, and closes the connection.
    [[gnu::cold, gnu::noinline]] CSCLIENT_INTERNAL void failRead(std::initializer_list<std::string_view> line)
        CSCLIENT_EXCLUDES(connectionMutex);

    /// The name of the input that the host has confirmed under `id`. Null when there is none.
    CSCLIENT_INTERNAL const std::string* findInputName(std::uint32_t id) CSCLIENT_REQUIRES(parameterMutex);
    /// To be called with every change of `inputNamesById`, before an element goes.
    CSCLIENT_INTERNAL void inputNamesChange() CSCLIENT_REQUIRES(parameterMutex);

    /// Finds an output by the name given to a publish call. Null when there is none.
    CSCLIENT_INTERNAL OutputParameterEntry* findOutput(const std::string& name) CSCLIENT_REQUIRES(parameterMutex);
    /// To be called before an output's entry is destroyed: forgets what points to it besides the tables.
    CSCLIENT_INTERNAL void forgetPublished() CSCLIENT_REQUIRES(parameterMutex);

    CSCLIENT_INTERNAL void storeServerVersion(std::string version);

    CSCLIENT_INTERNAL std::vector<std::string> inputNames() const;
    CSCLIENT_INTERNAL std::vector<std::string> outputNames() const;

    // Changed under connectionMutex, read by any thread without it.

    std::atomic<std::uint32_t> serverAddress{0};
    std::atomic<std::uint32_t> serverPort{0};

    // Constant after construction.

    const unsigned int options;

    // Guarded by connectionMutex.

    CSClient::ConnectionOptions connectionOptions CSCLIENT_GUARDED_BY(connectionMutex);

    // What the host has reported about itself: written by the worker, read by any thread.

    std::string serverVersion CSCLIENT_GUARDED_BY(versionMutex);
    std::atomic<std::uint32_t> protocolVersion{0};

    mutable ConnectionMutex connectionMutex;
    mutable CSMutex callbackMutex;
    mutable CSMutex parameterMutex;

    /// Guards the set of keys of `inputsByName` and `outputsByName` beside `parameterMutex`: a change takes both, a
    /// reader of names alone takes this one.
    mutable CSMutex namesMutex;
    mutable CSMutex versionMutex;

    // Changed under connectionMutex, read by any thread without it.

    std::atomic<CSClient::State> state{CSClient::STATE_DISCONNECTED};
    /// The worker while it announces the end, otherwise 0.
    std::atomic<pthread_t> announcingEnd{0};
    /// Counts the connections; never `kNoConnection`.
    std::atomic<std::uint32_t> connectionNumber{kNoConnection + 1};

    // Guarded by connectionMutex.

    /// Owned; never null outside construction and destruction.
    CSCommsInterfaceTCP* comms CSCLIENT_GUARDED_BY(connectionMutex) = nullptr;
    /// Created and killed under the lock, so that an old worker never ends a new one.
    CSThread workerThread CSCLIENT_GUARDED_BY(connectionMutex);
    /// The connection whose close the holder of the lock has deferred, or `kNoConnection`.
    std::uint32_t closeDeferredByConnectionHolder CSCLIENT_GUARDED_BY(connectionMutex) = kNoConnection;

    // Guarded by callbackMutex.

    std::set<CSClient::CallbackIface*> callbacks CSCLIENT_GUARDED_BY(callbackMutex);
    /// `callbacks` as a list that notifiers share. It is replaced, not changed; but when there is no memory for another
    /// one, an interface that is removed becomes null in it.
    std::shared_ptr<CallbackList> callbackList CSCLIENT_GUARDED_BY(callbackMutex);
    /// Changed under callbackMutex after each replacement of the list, read by the worker without it.
    std::atomic<std::uint32_t> callbackListVersion{0};

    // Guarded by parameterMutex, together with every field of every entry. The names that are keys are those in the
    // entries.

    /// Every input, confirmed or not. Owns the entries.
    std::map<std::string_view, InputParameterEntry*> inputsByName CSCLIENT_GUARDED_BY(parameterMutex);
    /// The inputs that the host has confirmed, by its ids.
    std::map<std::uint32_t, std::string> inputNamesById CSCLIENT_GUARDED_BY(parameterMutex);
    /// Changes with every change of `inputNamesById`.
    std::uint32_t inputNamesVersion CSCLIENT_GUARDED_BY(parameterMutex) = 0;
    /// The elements of `inputNamesById` that updates have needed since it changed.
    LookupIndex<const std::pair<const std::uint32_t, std::string>, IdKey> updatedIndex
        CSCLIENT_GUARDED_BY(parameterMutex);
    /// Every output, confirmed or not. Owns the entries.
    std::map<std::string_view, OutputParameterEntry*> outputsByName CSCLIENT_GUARDED_BY(parameterMutex);
    /// Where the nodes of `outputsById` lie side by side: as blocks of their own each would cost a third more.
    std::pmr::unsynchronized_pool_resource outputIdNodes CSCLIENT_GUARDED_BY(parameterMutex);
    /// The ids under which the host has confirmed outputs. Ids of earlier connections deliberately stay, also after
    /// their output is gone: the pointers are never followed.
    std::pmr::map<std::uint32_t, OutputParameterEntry*> outputsById CSCLIENT_GUARDED_BY(parameterMutex){&outputIdNodes};
    /// The outputs that were published most recently, by name.
    LookupIndex<OutputParameterEntry, NameKey> publishedIndex CSCLIENT_GUARDED_BY(parameterMutex);
    /// The outputs of the last publish call, record by record; null where a call ended early.
    std::vector<OutputParameterEntry*> publishedBatch CSCLIENT_GUARDED_BY(parameterMutex);
    /// The connection whose close the holder of the lock has deferred, or `kNoConnection`.
    std::uint32_t closeDeferredByParameterHolder CSCLIENT_GUARDED_BY(parameterMutex) = kNoConnection;
    Registered inputsRegistered CSCLIENT_GUARDED_BY(parameterMutex);
    Registered outputsRegistered CSCLIENT_GUARDED_BY(parameterMutex);

    // Any thread.

    /// For the frame that is being built and sent.
    SpareMessage spareFrame;

    // Worker thread.

    ReusableMessage receivedHeader;
    ReusableMessage receivedBody;
    /// The list last notified of received values and confirmations, and its version.
    std::shared_ptr<const CallbackList> workerCallbacks;
    std::uint32_t workerCallbacksVersion = 0;

    /// Threads that are handing a frame to the transport.
    CSUseCount senders;

    /// The pause between two attempts to connect.
    InterruptiblePause retryPause;

    /// The connection that a cancelled thread has left to the worker to close, or `kNoConnection`. Nothing more is sent on
    /// it. Set by any thread, taken back by the worker.
    std::atomic<std::uint32_t> abandonedConnection{kNoConnection};

    /// Threads that wait for `parameterMutex` and go first.
    std::atomic<int> waitingFirst{0};

    /// Set by any thread counted in `closeRequesters`, taken back under connectionMutex.
    std::atomic<bool> isCloseRequested{false};
    /// Threads that are noting a request to close.
    CSUseCount closeRequesters;

    /// @endcond
};

}  // namespace com_tesk
