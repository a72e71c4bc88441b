#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "message/RawMessage.h"
#include "session/Dispatcher.h"
#include "session/FrameSender.h"
#include "session/InputSlot.h"
#include "session/Log.h"
#include "session/Mutex.h"

namespace com_tesk::session {

/// Reads the host's messages: stores values of inputs, and passes confirmations on. Worker thread, unless stated.
class UpdateReceiver {
  public:
    /// The arguments outlive this object.
    UpdateReceiver(FrameSender& frameSender, SessionProtocol& engine, Dispatcher& eventDispatcher,
                   const Log& sessionLog)
        : sender(frameSender), protocol(engine), dispatcher(eventDispatcher), log(sessionLog) {}
    UpdateReceiver(const UpdateReceiver&) = delete;
    UpdateReceiver& operator=(const UpdateReceiver&) = delete;
    ~UpdateReceiver() = default;

    /// Erases the ids of an earlier connection.
    void begin();

    /// @return true when the message concerns the link: an answer or a confirmation.
    bool receive(const RawMessage& message);

    /// @name Any thread
    /// @{

    /// True when the host has answered a version request on the current connection.
    bool isAnswered() const { return answered; }
    /// Stores that there is no answer yet.
    void forgetAnswer() { answered = false; }
    /// The host's version text and protocol version.
    struct HostFacts {
        std::string version;
        unsigned int protocol = 0;
    };
    HostFacts host() CSCLIENT_EXCLUDES(hostMutex);
    /// Microseconds; -1 before the first answer.
    std::int64_t roundTrip() const { return lastRoundTrip; }
    std::uint64_t values() const { return valuesReceived; }
    std::uint64_t unknownIds() const { return unknown; }
    /// @}

  private:
    enum class Source { CONFIRMATION, UPDATE };

    void receiveVersion(const RawMessage& message) CSCLIENT_EXCLUDES(hostMutex);
    void receiveOutputConfirmation(const RawMessage& message);
    void receiveInputConfirmation(const RawMessage& message);
    void receiveUpdate(const RawMessage& message);
    void store(InputSlot& slot, const CSClient::Parameter& value, Clock::time_point now, Source source);
    void passOn(std::size_t values);

    FrameSender& sender;
    SessionProtocol& protocol;
    Dispatcher& dispatcher;
    const Log& log;

    // Any thread.

    std::atomic<bool> answered{false};
    std::atomic<std::int64_t> lastRoundTrip{-1};
    std::atomic<std::uint64_t> valuesReceived{0};
    std::atomic<std::uint64_t> unknown{0};
    Mutex hostMutex;
    HostFacts facts CSCLIENT_GUARDED_BY(hostMutex);

    // Worker thread.

    std::unordered_map<std::uint32_t, InputSlot*> byId;
    std::vector<Dispatcher::Changed> changed;
    /// Reused for each record.
    CSClient::Parameter record;
};

}  // namespace com_tesk::session
