#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "session/InputSlot.h"
#include "session/Mutex.h"
#include "session/OutputSlot.h"
#include "session/OutputStage.h"
#include "session/SessionProtocol.h"
#include "session/SessionTransport.h"
#include "session/SlotTable.h"

namespace com_tesk::session {

/// The declared parameters, and everything that is sent for them: requests for the version, registrations, values.
///
/// Its lock is held while a frame is built and handed to the system, which never blocks. The lock is taken inside the
/// engine's `connectionMutex`, so no operation under it may take that one: the transport reports no failed write to
/// the engine. session/FrameSenderTables.cpp declares and confirms; session/FrameSender.cpp sends.
class FrameSender {
  public:
    /// @param wakeOfSession  outlives this object, as do the others. Signalled when the session's thread has to send.
    /// @param modeOfInputs   sent with each subscription.
    FrameSender(SlotOwner& ownerOfSlots, SessionProtocol& engine, SessionTransport& socket, WakePipe& wakeOfSession,
                std::uint32_t modeOfInputs);
    FrameSender(const FrameSender&) = delete;
    FrameSender& operator=(const FrameSender&) = delete;
    ~FrameSender() = default;

    /// @name Declarations
    /// Any thread. `queueSize` is 0 for `Delivery::NEWEST`.
    /// @{
    OutputSlot& declareOutput(std::string_view name, ValueType type, std::size_t queueSize) CSCLIENT_EXCLUDES(mutex);
    InputSlot& declareInput(std::string_view name, ValueType type, std::size_t queueSize) CSCLIENT_EXCLUDES(mutex);
    void withdraw(OutputSlot& slot) CSCLIENT_EXCLUDES(mutex);
    void withdraw(InputSlot& slot) CSCLIENT_EXCLUDES(mutex);
    /// Declared parameters that the host has not confirmed on the current connection.
    std::size_t unconfirmed() const { return unconfirmedOutputs + unconfirmedInputs; }
    /// Calls a function for each slot. The lock is held for a few slots at a time.
    /// @{
    template <typename Visit>
    void forEachOutput(const Visit& visit) CSCLIENT_EXCLUDES(mutex) {
        for (std::size_t begin = 0, end = 1; begin < end;) {
            const MutexLock lock(mutex);
            begin = visitSome(outputs.all(), begin, visit);
            end = outputs.all().size();
        }
    }
    template <typename Visit>
    void forEachInput(const Visit& visit) CSCLIENT_EXCLUDES(mutex) {
        for (std::size_t begin = 0, end = 1; begin < end;) {
            const MutexLock lock(mutex);
            begin = visitSome(inputs.all(), begin, visit);
            end = inputs.all().size();
        }
    }
    /// @}
    /// The number of the current connection; 0 without one.
    const std::atomic<std::uint32_t>& connection() const { return current; }
    /// @}

    /// @name The connection
    /// @{

    /// A connection begins: requests the version and registers everything. Worker thread.
    void begin(std::uint32_t number) CSCLIENT_EXCLUDES(mutex);
    /// The connection has ended: erases its ids.
    void end() CSCLIENT_EXCLUDES(mutex);
    /// Registers everything again, under a new simulator id.
    void registerAgain() CSCLIENT_EXCLUDES(mutex);
    /// Stores the ids of a confirmation. The values of its outputs leave at once.
    /// @return the number of records with a name that is not declared.
    template <typename Records>
    std::size_t confirmOutputs(const Records& records) CSCLIENT_EXCLUDES(mutex) {
        std::size_t unknown = 0;
        const MutexLock lock(mutex);
        for (unsigned int i = 0; i < records.size(); ++i) {
            unknown += confirmOutput(records.name(i), records.id(i)) ? 0 : 1;
        }
        sendHeld();
        return unknown;
    }
    /// As above. Calls `storeValue` with the slot and the record's index before the slot is confirmed: a thread that
    /// sees the confirmation also sees the value that came with it.
    template <typename Records, typename StoreValue>
    void confirmInputs(const Records& records, const StoreValue& storeValue) CSCLIENT_EXCLUDES(mutex) {
        const MutexLock lock(mutex);
        for (unsigned int i = 0; i < records.size(); ++i) {
            InputSlot* const slot = inputs.find(records.name(i));
            if (slot != nullptr && slot->isRegistered) {
                storeValue(*slot, i);
                confirm(*slot, records.id(i));
            }
        }
        sendHeld();
    }
    /// @}

    /// @name Sending
    /// @{

    /// Sends what waits, as far as the socket takes it. Never blocks.
    void send() CSCLIENT_EXCLUDES(mutex);
    /// As `send`, unless another thread is sending; then the session's thread does it.
    void trySend() CSCLIENT_EXCLUDES(mutex);
    /// Tells the host that nothing more is sent on this connection. Values that are staged from now on stay staged.
    void endSending() CSCLIENT_EXCLUDES(mutex);
    /// Leaves what waits to the session's thread.
    void sendLater();
    /// Requests the version, after everything that waits.
    void requestVersion() CSCLIENT_EXCLUDES(mutex);
    /// The host has answered a request.
    /// @return the time that the answer took; -1 for an answer to no request.
    std::chrono::microseconds versionAnswered() CSCLIENT_EXCLUDES(mutex);
    unsigned int unansweredVersionRequests() const { return unanswered; }
    /// True when nothing waits to be sent. Values of outputs that are not confirmed count when `withUnconfirmed`.
    bool isDrained(bool withUnconfirmed) CSCLIENT_EXCLUDES(mutex);
    /// True when the session's thread has to send, because another thread could not.
    bool isSendWanted() const { return wanted; }
    /// True when the socket has not taken everything.
    bool hasRest() const { return isRestLeft; }
    /// Returns when the socket last took a part of the rest; only while `hasRest`.
    Clock::time_point lastProgress() CSCLIENT_EXCLUDES(mutex);
    /// Values that have left.
    std::uint64_t valuesSent() const { return sent; }
    OutputStage& stage() { return staged; }
    /// @}

    /// Calls `isStale` for each watched input with a maximum age, and returns the earliest time at which one may have
    /// become too old.
    template <typename Stale>
    Clock::time_point findStale(Clock::time_point now, const Stale& report) CSCLIENT_EXCLUDES(mutex) {
        const MutexLock lock(mutex);
        Clock::time_point next = kNoDeadline;
        for (const auto& slot : inputs.all()) {
            const std::chrono::milliseconds limit = slot->maxAge();
            if (limit.count() == 0 || !slot->isWatched) {
                slot->staleNumber = 0;
                continue;
            }
            const Sample sample = slot->newest.read();
            const Clock::time_point old = InputSlot::timeOf(sample) + limit;
            if (sample.number == 0 || old > now) {
                slot->staleNumber = 0;
                next = std::min(next, sample.number == 0 ? now + limit : old);
                continue;
            }
            next = std::min(next, now + limit);
            if (slot->staleNumber != sample.number) {
                slot->staleNumber = sample.number;
                report(*slot);
            }
        }
        return next;
    }

  private:
    using OutputEntry = CSClientProtocol::OutputParameterEntry;
    using InputEntry = CSClientProtocol::InputParameterEntry;

    /// The most version requests whose answer is awaited: one more than a connection may leave unanswered.
    static constexpr std::size_t kMaxRequests = 4;

    /// Visits some slots from `begin` on, and returns the index of the next.
    template <typename Slots, typename Visit>
    static std::size_t visitSome(const Slots& slots, std::size_t begin, const Visit& visit) {
        constexpr std::size_t kAtOnce = 256;
        const std::size_t end = std::min(slots.size(), begin + kAtOnce);
        for (std::size_t i = begin; i < end; ++i) {
            visit(*slots[i]);
        }
        return end;
    }

    bool confirmOutput(std::string_view name, std::uint32_t id) CSCLIENT_REQUIRES(mutex);
    void confirm(InputSlot& slot, std::uint32_t id) CSCLIENT_REQUIRES(mutex);
    /// Erases the ids and the registrations of the connection.
    void forgetRegistrations() CSCLIENT_REQUIRES(mutex);
    /// Counts the slot when it is declared and not confirmed.
    void count(OutputSlot& slot) CSCLIENT_REQUIRES(mutex);
    void count(InputSlot& slot) CSCLIENT_REQUIRES(mutex);

    void sendHeld() CSCLIENT_REQUIRES(mutex);
    bool sendVersionRequest() CSCLIENT_REQUIRES(mutex);
    bool sendOutputDeclarations() CSCLIENT_REQUIRES(mutex);
    bool sendInputDeclarations() CSCLIENT_REQUIRES(mutex);
    bool sendValues() CSCLIENT_REQUIRES(mutex);
    /// Moves the next value of each queue to the next frame.
    void queueMore() CSCLIENT_REQUIRES(mutex);
    /// Takes the next value of an output.
    /// @return true when more values are queued.
    bool takeNext(OutputSlot& slot) CSCLIENT_REQUIRES(mutex);
    /// Stores a value that was taken, for the next frame when the output is confirmed.
    void store(OutputSlot& slot, std::uint32_t bits) CSCLIENT_REQUIRES(mutex);
    /// Erases the value of an output that is withdrawn.
    void eraseValue(OutputSlot& slot) CSCLIENT_REQUIRES(mutex);
    void addToBatch(OutputSlot& slot) CSCLIENT_REQUIRES(mutex);
    /// Stores that the value does not wait to leave.
    void dropUnsent(OutputSlot& slot) CSCLIENT_REQUIRES(mutex);
    bool isUp() const { return current != 0; }

    SlotOwner& slotOwner;
    SessionProtocol& protocol;
    SessionTransport& transport;
    WakePipe& wake;
    const std::uint32_t subscriptionMode;

    Mutex mutex;

    // Any thread.

    OutputStage staged;
    std::atomic<std::uint32_t> current{0};
    std::atomic<bool> wanted{false};
    std::atomic<bool> isRestLeft{false};
    std::atomic<std::uint64_t> sent{0};
    std::atomic<unsigned int> unanswered{0};
    std::atomic<std::size_t> unconfirmedOutputs{0};
    std::atomic<std::size_t> unconfirmedInputs{0};

    // Guarded by the mutex.

    SlotTable<OutputSlot> outputs CSCLIENT_GUARDED_BY(mutex);
    SlotTable<InputSlot> inputs CSCLIENT_GUARDED_BY(mutex);
    bool isVersionWanted CSCLIENT_GUARDED_BY(mutex) = false;
    /// True when nothing more is sent on the current connection.
    bool hasEnded CSCLIENT_GUARDED_BY(mutex) = false;
    /// When the unanswered requests were sent, the oldest first.
    std::array<Clock::time_point, kMaxRequests> requested CSCLIENT_GUARDED_BY(mutex);
    /// Outputs whose value has not left on any connection.
    std::size_t unsent CSCLIENT_GUARDED_BY(mutex) = 0;
    /// Outputs of the next frame, and those with more values for the frame after it. All have the capacity for every
    /// output.
    std::vector<OutputSlot*> batch CSCLIENT_GUARDED_BY(mutex);
    std::vector<OutputSlot*> more CSCLIENT_GUARDED_BY(mutex);
    std::vector<OutputEntry*> batchEntries CSCLIENT_GUARDED_BY(mutex);
};

}  // namespace com_tesk::session
