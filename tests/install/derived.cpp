// An application with its own transport and protocol. It derives from every class that is meant for this, with the
// installed headers and the shared library. Exits 0 when the derived classes work.

#include <client/CSClient.h>
#include <comms/CSCommsInterfaceTCPBuffered.h>
#include <engine/CSClientProtocol.h>
#include <simulator/SimulatorProtocol.h>

#include <memory>
#include <type_traits>

using namespace com_tesk;

namespace {

class CountingTransport : public CSCommsInterfaceTCPBuffered {
  public:
    int writeMessage(const RawMessage& message) override {
        ++writes;
        return CSCommsInterfaceTCPBuffered::writeMessage(message);
    }
    int writes = 0;
};

class OwnProtocol : public CSClientProtocol {
  public:
    explicit OwnProtocol(unsigned int options) : CSClientProtocol(options) {}
    void handleReceivedMessage(const RawMessage&) override {}
    int requestSimulatorVersion() override { return 0; }
    int sendInputSubscriptionRequest(const std::vector<InputParameterEntry*>&) override { return 0; }
    int sendInputUnsubscriptionRequest(const std::vector<InputParameterEntry*>&) override { return 0; }
    int sendOutputSubscriptionRequest(const std::vector<OutputParameterEntry*>&) override { return 0; }
    int sendOutputUnsubscriptionRequest(const std::vector<OutputParameterEntry*>&) override { return 0; }
    int sendParameterPublishRequest(const std::vector<OutputParameterEntry*>&, PublishMode) override {
        ++published;
        return 0;
    }
    /// Confirms an output, as a handler of received messages does.
    bool confirm(const std::string& name, unsigned int id) { return confirmOutputParameter(name, id); }
    int published = 0;
};

class ChattySimulatorProtocol : public SimulatorProtocol {
  public:
    using SimulatorProtocol::SimulatorProtocol;
    void handleReceivedMessage(const RawMessage& message) override {
        SimulatorProtocol::handleReceivedMessage(message);
    }
};

class OwnClient : public CSClient {
  public:
    OwnClient() : CSClient(OPTION_SILENT) { engine = new OwnProtocol(OPTION_SILENT); }
    OwnProtocol& protocol() { return dynamic_cast<OwnProtocol&>(*engine); }
};

}  // namespace

int main() {
    static_assert(!std::is_abstract<ChattySimulatorProtocol>::value, "complete");
    OwnClient client;
    auto* const transport = new CountingTransport;
    RawMessage message(RawMessage::DATA);
    message.write(1U);
    const bool isRefused = transport->writeMessage(message) < 0 && transport->writes == 1;  // There is no connection.
    const bool isTaken = client.changeCommsInterface(transport);
    const bool isPublished = client.registerOutputParameter({"one", CSClient::TYPE_INT}) == 0 &&
                             client.publishParameter({"one", {1.0F}, CSClient::TYPE_INT}) == 0 &&
                             client.protocol().published == 1 && !client.isOutputParameterRegistered("one") &&
                             client.protocol().confirm("one", 7) && client.isOutputParameterRegistered("one") &&
                             !client.protocol().confirm("two", 8);
    return isRefused && isTaken && isPublished ? 0 : 1;
}
