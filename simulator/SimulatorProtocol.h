#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "engine/CSClientProtocol.h"
#include "message/Export.h"

namespace com_tesk {

/// The protocol that a simulation host speaks: the six requests, and what the host sends. The bytes are drawn in
/// simulator/MessageLayout.h.
class CSCLIENT_EXPORT SimulatorProtocol : public CSClientProtocol {
  public:
    /// Simulator ids are smaller than this.
    static constexpr unsigned int kSimulatorIdLimit = 0x8000;

    /// @param initialSimulatorId  stored as it is, deliberately without the test that `setSimulatorId` makes.
    /// @param optionFlags         as for `SimClient`.
    SimulatorProtocol(unsigned int initialSimulatorId, unsigned int optionFlags);
    ~SimulatorProtocol() override;

    /// The id that requests carry: the constructor's, until it is set or the host assigns another. Any thread.
    unsigned int getSimulatorId() const;

    /// Changes the id from the next request on; sends nothing. Any thread.
    /// @return 0, or 3 when `id` is 32768 or more, and the old id stays.
    int setSimulatorId(unsigned int id);

    /// Hands a message to its handler, by its message code. What is foreign, malformed or unknown is dropped silently.
    /// Worker thread, no lock held.
    void handleReceivedMessage(const RawMessage& message) override;

    /// @name Requests (simulator/Requests.cpp)
    /// Locks and results: see the operations that they fill in.
    /// @{

    /// Message 00 06.
    int requestSimulatorVersion() override;
    /// Subscribes the batch: message 00 01.
    int sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override;
    /// Unsubscribes the batch: message 00 04.
    int sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>& entries) override;
    /// Registers the batch: message 00 02.
    int sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override;
    /// Unregisters the batch: message 00 05.
    int sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>& entries) override;
    /// Publishes the values of the batch: message 00 03.
    int sendParameterPublishRequest(const std::vector<OutputParameterEntry*>& entries, PublishMode mode) override;
    /// @}

    /// @name Handlers
    /// Worker thread, no lock held. Reading stops at the first record that does not fit whole.
    /// @{

    /// Stores what the host says of itself. A new simulator id has every parameter registered again.
    void handleSimulatorVersionResponse(const RawMessage& message);
    /// Confirms inputs, and passes on their current values.
    void handleSubscribeResponse(const RawMessage& message);
    /// Confirms outputs, and publishes again those that were published before.
    void handlePublishResponse(const RawMessage& message);
    /// Passes on new values of inputs.
    void handleSimulatorUpdate(const RawMessage& message);
    /// @}

  protected:
    /// @cond INTERNAL

    /// Whether an update has the ids of the one before, all of them known, under the same names.
    CSCLIENT_INTERNAL bool isLastUpdateAgain(const char* first, unsigned int records) const
        CSCLIENT_REQUIRES(parameterMutex);

    /// Reads the records from `first` on into `updateValues`, without those that are unknown.
    CSCLIENT_INTERNAL void readNewUpdate(const char* first, unsigned int records) CSCLIENT_REQUIRES(parameterMutex);

    /// Gives back what a huge update has needed.
    [[gnu::cold]] CSCLIENT_INTERNAL void forgetUpdate();

    /// Sends the current values of those of the named outputs that still are registered and published.
    CSCLIENT_INTERNAL void publishAgain(const std::vector<std::string>& names) CSCLIENT_EXCLUDES(parameterMutex);

    /// Writes what every request begins with, straight into its frame: the frame's header, the sub-header and the
    /// simulator word. Makes room for at most `longestRest` bytes behind them.
    /// @return where these belong.
    CSCLIENT_INTERNAL char* beginRequest(RawMessage& request, const unsigned char (&subHeader)[12],
                                         std::size_t longestRest) const;

    /// Completes a request that ends before `end`, and sends it.
    /// @return as `sendMessage`.
    CSCLIENT_INTERNAL unsigned int sendRequest(RawMessage& request, const char* end);

    /// As `sendRequest`, for a batch's request. Without a connection it deliberately counts as sent: the next connection
    /// registers everything again.
    CSCLIENT_INTERNAL int sendBatchRequest(RawMessage& request, const char* end);

    template <typename Entry>
    int sendUnregistration(const unsigned char (&subHeader)[12], const std::vector<Entry*>& entries);

    /// Written by the worker and by `setSimulatorId`, read by any thread.
    std::atomic<std::uint32_t> simulatorId;

    // Worker thread: the update before, so that the same parameters again only need their values.

    /// The ids of all its records.
    std::vector<std::uint32_t> updateIds;
    /// Its known parameters.
    std::vector<CSClient::Parameter> updateValues;
    /// Whether the three others belong together.
    bool isUpdateKept = false;
    /// The `inputNamesVersion` under which they got their names.
    std::uint32_t updateNamesVersion = 0;

    /// @endcond
};

}  // namespace com_tesk
