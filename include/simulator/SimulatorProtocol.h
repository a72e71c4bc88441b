#pragma once

#include <memory>
#include <vector>

#include "engine/CSClientProtocol.h"
#include "message/Export.h"

namespace com_tesk {

/// The protocol of a simulation host: six requests, and the host's messages. The manual's page on the wire format
/// shows the bytes.
class CSCLIENT_EXPORT SimulatorProtocol : public CSClientProtocol {
  public:
    /// The smallest number that is no simulator id.
    static constexpr unsigned int kSimulatorIdLimit = 0x8000;

    /// @param initialSimulatorId  stored without the check of `setSimulatorId`: hosts may know any id.
    /// @param optionFlags         as for `SimClient`.
    SimulatorProtocol(unsigned int initialSimulatorId, unsigned int optionFlags);
    ~SimulatorProtocol() override;

    /// Returns the id that requests carry: the constructor's, until it is set or the host assigns another. Any
    /// thread.
    unsigned int getSimulatorId() const;

    /// Changes the id from the next request on; sends nothing. Any thread.
    /// @return 0; 3 when `id` is 32768 or more, and the old id stays.
    int setSimulatorId(unsigned int id);

    /// Passes a message to its handler, by its message code. A foreign, malformed or unknown message is dropped
    /// silently. Worker thread, no lock held.
    void handleReceivedMessage(const RawMessage& message) override;

    /// @name Requests
    /// The overridden operations document locks and results. Without a connection a batch counts as sent: the next
    /// connection registers everything again.
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
    /// Worker thread, no lock held. Reading stops at the first record that is not complete.
    /// @{

    /// Stores the host's version text and protocol version. A new simulator id causes every parameter to be
    /// registered again.
    void handleSimulatorVersionResponse(const RawMessage& message);
    /// Confirms inputs and reports their current values.
    void handleSubscribeResponse(const RawMessage& message);
    /// Confirms outputs, and publishes again those that were published before.
    void handlePublishResponse(const RawMessage& message);
    /// Reports new values of inputs.
    void handleSimulatorUpdate(const RawMessage& message);
    /// @}

  private:
    struct CSCLIENT_INTERNAL Inside;
    const std::unique_ptr<Inside> inside;
};

}  // namespace com_tesk
